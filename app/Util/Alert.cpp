#include "app/Util/Alert.hpp"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>

namespace {

QMessageBox::Icon iconOf(NSAlertStyle style) {
    switch (style) {
        case NSAlertStyle::Warning:
            return QMessageBox::Warning;
        case NSAlertStyle::Informational:
            return QMessageBox::Information;
        case NSAlertStyle::Critical:
            return QMessageBox::Critical;
    }
    return QMessageBox::NoIcon;
}

}  // namespace

int Alert::runModal(QWidget* window) const {
    const QString message = QString::fromStdString(mMessageText);
    const QString informative = QString::fromStdString(mInformativeText);
    QMessageBox box(iconOf(mStyle), window ? window->windowTitle() : message, message, QMessageBox::NoButton, window);
    box.setTextFormat(Qt::PlainText);
    box.setInformativeText(informative);
    box.setAccessibleName(message);
    box.setAccessibleDescription(informative);

    std::vector<QPushButton*> buttons;
    for (const std::string& title : mButtons) {
        const bool last = buttons.size() + 1 == mButtons.size();
        const auto role = last && !buttons.empty()           ? QMessageBox::RejectRole
                          : mStyle == NSAlertStyle::Critical ? QMessageBox::DestructiveRole
                                                             : QMessageBox::AcceptRole;
        buttons.push_back(box.addButton(QString::fromStdString(title), role));
    }
    if (!buttons.empty()) {
        box.setDefaultButton(buttons.back());
        box.setEscapeButton(buttons.back());
    }
    box.exec();
    const auto clicked = std::find(buttons.begin(), buttons.end(), box.clickedButton());
    return NSAlertFirstButtonReturn + static_cast<int>(clicked - buttons.begin());
}
