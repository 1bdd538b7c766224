#include "app/Util/Alert.hpp"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>
#include <array>

namespace {

constexpr std::array kIcons = {QMessageBox::Warning, QMessageBox::Information, QMessageBox::Critical};  ///< by style

}  // namespace

int Alert::runModal(QWidget* window) const {
    const QString message = QString::fromStdString(mMessageText);
    const QString informative = QString::fromStdString(mInformativeText);
    QMessageBox box(kIcons[static_cast<std::size_t>(mStyle)], window ? window->windowTitle() : message, message,
                    QMessageBox::NoButton, window);
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
    const auto clicked = std::ranges::find(buttons, box.clickedButton());
    return NSAlertFirstButtonReturn + static_cast<int>(clicked - buttons.begin());
}
