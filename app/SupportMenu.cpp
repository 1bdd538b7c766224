#include "app/SupportMenu.hpp"

#include "WIN/WIN_DebugServer.hpp"
#include "app/RecordDetails.hpp"
#include "app/SaveReportDialog.hpp"
#include "app/Util/WindowTexts.hpp"

#include <QAction>
#include <QMenu>
#include <QMessageBox>
#include <QObject>

namespace {

/// Says from when on the choice holds, or that it could not be kept.
void recordDetails(QWidget& window, QAction& item, bool on) {
    const bool isSet = RecordDetails::set(on);
    if (!isSet) item.setChecked(!on);
    QMessageBox box(isSet ? QMessageBox::Information : QMessageBox::Warning, withoutKey(localized("RecordDetails")),
                    localized(!isSet ? "RecordDetailsNotSaved"
                              : on   ? "RecordDetailsOn"
                                     : "RecordDetailsOff"),
                    QMessageBox::NoButton, &window);
    box.setTextFormat(Qt::PlainText);
    const QString folder = QString::fromStdWString(win::DebugFileDirectory());
    if (isSet && on)
        box.setInformativeText(localized("RecordDetailsFolder").replace(QLatin1String("%@"), embedded(folder)));
    box.addButton(localized("OK"), QMessageBox::AcceptRole);
    box.exec();
}

}  // namespace

void SupportMenu::addItems(QMenu& menu, QWidget& window) {
    menu.addAction(localized("SaveReport"), &window, [&window] { SaveReportDialog(&window).exec(); });
    QAction* const details = menu.addAction(localized("RecordDetails"));
    details->setCheckable(true);
    QObject::connect(details, &QAction::triggered, &window,
                     [&window, details](bool on) { recordDetails(window, *details, on); });
    // Not when the window is made: that would read the preferences before the first frame.
    QObject::connect(&menu, &QMenu::aboutToShow, details, [details] { details->setChecked(RecordDetails::isOn()); });
}
