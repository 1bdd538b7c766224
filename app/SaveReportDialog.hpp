#pragma once

#include "app/Support/Report.hpp"

#include <QDialog>

#include <memory>
#include <thread>

class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;

/// Shows what a report for support holds, and saves it where the person says. The report is collected on a thread of
/// its own while the dialog is there already; what it lists then is what is saved. A failure is told in a box, and can
/// be tried again elsewhere. Main thread only.
class SaveReportDialog final : public QDialog {
  public:
    /// Begins to collect.
    explicit SaveReportDialog(QWidget* window);
    ~SaveReportDialog() override;  ///< waits for the collecting, which it ends early
    SaveReportDialog(const SaveReportDialog&) = delete;
    SaveReportDialog& operator=(const SaveReportDialog&) = delete;

  private:
    void collect();
    void showReport(std::shared_ptr<const Report> report);
    void save();

    QTreeWidget* mList;
    QProgressBar* mProgress;
    QPushButton* mSave;
    std::shared_ptr<const Report> mReport;  ///< null while it is collected
    std::jthread mCollector;
};
