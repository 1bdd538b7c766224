#include "app/Desktop/LogFiles.hpp"

#include "app/Desktop/DesktopBus.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/WindowTexts.hpp"

#include <QClipboard>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr int kPatience = 10'000;  ///< milliseconds, in which a file manager may have to be started

QString folder() {
    return QString::fromStdString(TrovikLogs::logsDirectory());
}

void openFolder(QWidget* window) {
    const QUrl url = QUrl::fromLocalFile(folder());
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (opener.isEmpty()) {
        if (!QDesktopServices::openUrl(url)) LogFiles::showPath(window);
        return;
    }
    // Not through the toolkit: it does not wait for the opener, which alone knows whether there was something to open
    // the folder with.
    auto* const process = new QProcess(window);
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    // An opener may stay until the file manager is closed, and then its status says nothing about the folder.
    const QDeadlineTimer opening(kPatience);
    QObject::connect(process, &QProcess::finished, window, [window, process, opening](int status) {
        process->deleteLater();
        if (status != 0 && !opening.hasExpired()) LogFiles::showPath(window);
    });
    QObject::connect(process, &QProcess::errorOccurred, window, [window, process](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) return;
        process->deleteLater();
        LogFiles::showPath(window);
    });
    process->start(opener, {url.toString(QUrl::FullyEncoded)});
}

}  // namespace

void LogFiles::show(QWidget* window) {
    if (folder().isEmpty()) return;
    const std::vector<std::string> files = TrovikLogs::sortedLogsWithPrefix("ResetTool");
    const auto bus = DesktopBus::session();
    if (!bus || files.empty()) return openFolder(window);
    auto call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    const QUrl newest = QUrl::fromLocalFile(QString::fromStdString(files.front()));
    call << QStringList(newest.toString(QUrl::FullyEncoded)) << QString();
    auto* const answer = new QDBusPendingCallWatcher(bus->asyncCall(call, kPatience), window);
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, window, [window, answer] {
        answer->deleteLater();
        if (answer->isError()) openFolder(window);
    });
}

void LogFiles::showPath(QWidget* window) {
    auto* const box = new QDialog(window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(true);
    box->setWindowTitle(window->windowTitle());
    auto* const rows = new QVBoxLayout(box);

    auto* const text = new QLabel(localized("LogFolderCannotBeOpened"));
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    rows->addWidget(text);
    // A line to edit scrolls where the path is longer than the box is wide, and is read by screen readers.
    auto* const path = new QLineEdit(folder());
    path->setReadOnly(true);
    path->setLayoutDirection(Qt::LeftToRight);
    path->setAccessibleName(localized("LogFolderPath"));
    path->setAccessibleDescription(text->text());
    path->setSelection(static_cast<int>(path->text().size()),
                       -static_cast<int>(path->text().size()));  // shows its start
    path->setMinimumWidth(std::min(path->fontMetrics().horizontalAdvance(path->text()) + path->sizeHint().height(),
                                   window->width() - 2 * rows->contentsMargins().left()));
    rows->addWidget(path);

    auto* const buttons = new QDialogButtonBox;
    rows->addWidget(buttons);
    auto* const copy = buttons->addButton(localized("CopyPath"), QDialogButtonBox::ActionRole);
    buttons->addButton(localized("OK"), QDialogButtonBox::AcceptRole)->setDefault(true);
    QObject::connect(copy, &QPushButton::clicked, path,
                     [path] { QGuiApplication::clipboard()->setText(path->text()); });
    QObject::connect(buttons, &QDialogButtonBox::accepted, box, &QDialog::accept);
    path->setFocus();
    box->open();
}
