#pragma once

#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <QApplication>
#include <QChar>
#include <QRegularExpression>
#include <QString>

/// The text of a key in the user's language.
inline QString localized(const char* key) {
    return QString::fromStdString(platform::mainBundle().localizedStringForKey(key, "", ""));
}

/// A button's or menu item's text without the mark of its key: "&About" or, in scripts without Latin letters, "(&A)".
inline QString withoutKey(QString text) {
    static const QRegularExpression mark(QStringLiteral("\\(&.\\)|&"));
    return text.remove(mark);
}

/// A text in Latin letters as a paragraph of a text that reads the window's way: it starts at the same side, and keeps
/// its own order within.
inline QString embedded(const QString& latin) {
    if (QApplication::isLeftToRight()) return latin;
    constexpr QChar kRightToLeftMark(0x200F);
    constexpr QChar kLeftToRightIsolate(0x2066);
    constexpr QChar kPopDirectionalIsolate(0x2069);
    return kRightToLeftMark + (kLeftToRightIsolate + latin) + kPopDirectionalIsolate;
}
