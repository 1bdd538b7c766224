#include "app/Util/Alert.hpp"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>

int Alert::runModal(QWidget* window) const {
    const QString message = QString::fromStdString(mMessageText);
    const QString informative = QString::fromStdString(mInformativeText);
    // A critical question warns too: nothing has gone wrong yet, which is what the toolkit's critical picture says.
    const auto icon = mStyle == NSAlertStyle::Informational ? QMessageBox::Information : QMessageBox::Warning;
    QMessageBox box(icon, window ? window->windowTitle() : message, message, QMessageBox::NoButton, window);
    box.setTextFormat(Qt::PlainText);
    box.setInformativeText(informative);
    // As the desktops' own alerts have it; the label's name is the toolkit's.
    if (auto* const question = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
        QFont bold = question->font();
        bold.setBold(true);
        question->setFont(bold);
    }
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
