#include "app/SaveReportDialog.hpp"

#include "WIN/WIN_BuildInfo.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "app/RecordDetails.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/WindowTexts.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMetaObject>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStandardPaths>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr char kFile[] = "app/SaveReportDialog";

// Device-independent pixels.
constexpr QSize kWanted(620, 460);
constexpr QSize kFrame(0, 40);  ///< what the desktop puts around it

/// The key of an entry's sentence.
const char* keyOf(Report::Kind kind) {
    switch (kind) {
        case Report::Kind::Contents:
            return "ReportContents";
        case Report::Kind::Versions:
            return "ReportVersions";
        case Report::Kind::Devices:
            return "ReportDevices";
        case Report::Kind::Access:
            return "ReportAccess";
        case Report::Kind::Log:
            return "ReportLog";
        case Report::Kind::CrashReport:
            return "ReportCrash";
        case Report::Kind::Trace:
            return "ReportTrace";
    }
    return "";
}

/// What the program knows of itself.
std::string facts() {
    const platform::NSBundle& bundle = platform::mainBundle();
    std::string text = bundle.infoText("CFBundleName") + " " + bundle.infoText("CFBundleShortVersionString") +
                       ", built " + win::BuildDate() + " " + win::BuildTime() + "\n";
    text += std::string("Qt: ") + qVersion() + ", display: " + QGuiApplication::platformName().toStdString() + "\n";
    const auto languages = bundle.preferredLocalizations();
    text += "Language: " + (languages.empty() ? "none" : languages.front()) + ", locale " +
            QLocale::system().name().toStdString() + "\n";
    return text + "Record Details: " + (RecordDetails::isOn() ? "on" : "off") + "\n";
}

QString proposedPath() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (!QDir(folder).exists()) folder = QDir::homePath();
    return QDir(folder).filePath(QString::fromStdString(Report::fileName(std::chrono::system_clock::now())));
}

}  // namespace

SaveReportDialog::SaveReportDialog(QWidget* window)
    : QDialog(window), mList(new QTreeWidget), mProgress(new QProgressBar) {
    setWindowTitle(withoutKey(localized("SaveReport")).remove(QChar(0x2026)));
    auto* const column = new QVBoxLayout(this);
    auto* const text = new QLabel(localized("ReportIntroduction"));
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    column->addWidget(text);

    mList->setAccessibleName(localized("ReportList"));
    mList->setHeaderLabels({localized("ReportFile"), localized("ReportSize"), localized("ReportMeaning")});
    mList->setRootIsDecorated(false);
    mList->setUniformRowHeights(true);
    mList->setTabKeyNavigation(false);
    mList->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    column->addWidget(mList, 1);

    mProgress->setRange(0, 0);
    mProgress->setTextVisible(false);
    mProgress->setAccessibleName(localized("ReportCollecting"));
    column->addWidget(mProgress);

    auto* const buttons = new QDialogButtonBox;
    mSave = buttons->addButton(localized("ReportSave"), QDialogButtonBox::AcceptRole);
    mSave->setEnabled(false);
    buttons->addButton(localized("Cancel"), QDialogButtonBox::RejectRole);
    connect(mSave, &QPushButton::clicked, this, [this] { save(); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(buttons);

    resize(kWanted.boundedTo(window->screen()->availableSize() - kFrame));
    collect();
}

SaveReportDialog::~SaveReportDialog() = default;

void SaveReportDialog::start(std::function<void(const std::stop_token&)> work) {
    mSave->setEnabled(false);
    mProgress->show();
    try {
        mWorker = std::jthread([work](const std::stop_token& stop) {
            platform::runGuarded([&] { work(stop); }, kFile, __LINE__);  // what it throws must not end a reset
        });
    } catch (const std::system_error&) {
        // No thread is to be had: then the person waits, before the dialog that is to be shown first.
        const auto inPlace = [work = std::move(work)] { platform::runGuarded([&] { work({}); }, kFile, __LINE__); };
        QMetaObject::invokeMethod(this, inPlace, Qt::QueuedConnection);
    }
}

void SaveReportDialog::collect() {
    start([this, logs = TrovikLogs::logsDirectory(),
           traces = QString::fromStdWString(win::DebugFileDirectory()).toStdString(),
           own = facts()](const std::stop_token& stop) {
        std::shared_ptr<const Report> report;
        const auto make = [&] {
            const auto sources = ReportSources::ofThisSystem(logs, traces, own);
            report = std::make_shared<const Report>(Report::collect(sources, stop));
        };
        platform::runGuarded(make, kFile, __LINE__);
        QMetaObject::invokeMethod(
            this, [this, report] { showReport(report); }, Qt::QueuedConnection);
    });
}

void SaveReportDialog::showReport(std::shared_ptr<const Report> report) {
    if (!report) {
        tell(QMessageBox::Warning, {});
        return reject();
    }
    mReport = std::move(report);
    const QLocale locale;
    for (const Report::Entry& entry : mReport->entries()) {
        auto* const row = new QTreeWidgetItem(mList);
        row->setText(0, QString::fromStdString(entry.name));
        row->setText(1, locale.formattedDataSize(static_cast<qint64>(entry.size)));
        row->setTextAlignment(1, Qt::AlignTrailing | Qt::AlignVCenter);
        row->setText(2, localized(keyOf(entry.kind)));
    }
    mList->setCurrentItem(mList->topLevelItem(0));
    showReady();
}

void SaveReportDialog::showReady() {
    mProgress->hide();
    mSave->setEnabled(true);
    mSave->setDefault(true);
    mSave->setFocus();
}

void SaveReportDialog::save() {
    QFileDialog chooser(this, windowTitle(), proposedPath());
    chooser.setAcceptMode(QFileDialog::AcceptSave);
    chooser.setNameFilter(QStringLiteral("ZIP (*.zip)"));
    chooser.setDefaultSuffix(QStringLiteral("zip"));
    chooser.setLabelText(QFileDialog::Accept, withoutKey(localized("ReportSave")).remove(QChar(0x2026)));
    chooser.setLabelText(QFileDialog::Reject, withoutKey(localized("Cancel")));
    if (chooser.exec() != QDialog::Accepted || chooser.selectedFiles().isEmpty()) return;
    const QString path = chooser.selectedFiles().constFirst();

    mProgress->setAccessibleName(windowTitle());
    start([this, path, report = mReport](const std::stop_token& stop) {
        auto error = std::make_error_code(std::errc::not_enough_memory);  // nothing else is thrown
        const auto write = [&] { error = report->write(QFile::encodeName(path).toStdString(), stop); };
        platform::runGuarded(write, kFile, __LINE__);
        QMetaObject::invokeMethod(
            this, [this, path, error] { showSaved(path, error); }, Qt::QueuedConnection);
    });
}

void SaveReportDialog::showSaved(const QString& path, const std::error_code& error) {
    showReady();
    const QString where = embedded(QDir::toNativeSeparators(path));
    if (error)
        return tell(QMessageBox::Warning, where + QLatin1Char('\n') + QString::fromLocal8Bit(error.message().c_str()));
    tell(QMessageBox::Information, where);
    accept();
}

void SaveReportDialog::tell(QMessageBox::Icon icon, const QString& details) {
    QMessageBox box(icon, windowTitle(), localized(icon == QMessageBox::Warning ? "ReportNotSaved" : "ReportSaved"),
                    QMessageBox::NoButton, this);
    box.setTextFormat(Qt::PlainText);
    box.setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    box.setInformativeText(details);
    box.addButton(localized("OK"), QMessageBox::AcceptRole);
    box.exec();
}
