#pragma once

#include "app/Support/Report.hpp"

#include <QDialog>
#include <QMessageBox>

#include <functional>
#include <memory>
#include <stop_token>
#include <system_error>
#include <thread>

class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;

/// Shows what a report for support holds, and saves it where the person says. The report is collected and saved on a
/// thread of its own while the dialog is there; what it lists is what is saved. A failure is told in a box, and saving
/// can be tried again elsewhere. Main thread only.
class SaveReportDialog final : public QDialog {
  public:
    /// Begins to collect.
    explicit SaveReportDialog(QWidget* window);
    ~SaveReportDialog() override;  ///< waits for the collecting or saving, which it ends early
    SaveReportDialog(const SaveReportDialog&) = delete;
    SaveReportDialog& operator=(const SaveReportDialog&) = delete;

  private:
    /// Runs this on a new thread, then waits for the one before to end; or, where no thread is to be had, on this one,
    /// later. What runs queues what the dialog is to do with the result.
    void start(std::function<void(const std::stop_token&)> work);
    void collect();
    void showReport(std::shared_ptr<const Report> report);  ///< null when it could not be collected
    void showReady();
    void save();
    void showSaved(const QString& path, const std::error_code& error);
    void tell(QMessageBox::Icon icon, const QString& details);

    QTreeWidget* mList;
    QProgressBar* mProgress;
    QPushButton* mSave;
    std::shared_ptr<const Report> mReport;  ///< null while it is collected
    std::jthread mWorker;
};
