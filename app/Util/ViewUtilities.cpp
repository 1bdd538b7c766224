#include "app/Util/ViewUtilities.hpp"

#include <QAbstractButton>
#include <QAbstractSlider>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QLineEdit>
#include <QPropertyAnimation>
#include <QStyle>
#include <QTextEdit>
#include <QVariant>

#include <algorithm>

namespace ViewUtilities {
namespace {

constexpr const char* kTranslates = "translatesAutoresizingMaskIntoConstraints";

bool isTextField(const QWidget& view) {
    return qobject_cast<const QLabel*>(&view) || qobject_cast<const QLineEdit*>(&view) ||
           qobject_cast<const QTextEdit*>(&view);
}

bool isControl(const QWidget& view) {
    return isTextField(view) || qobject_cast<const QAbstractButton*>(&view) ||
           qobject_cast<const QAbstractSlider*>(&view) || qobject_cast<const QAbstractSpinBox*>(&view) ||
           qobject_cast<const QComboBox*>(&view);
}

/// A view's children. What the toolkit builds a single control from is no child.
QList<QWidget*> subviewsOf(const QWidget& view) {
    if (isControl(view)) return {};
    return view.findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
}

void setTextColour(QWidget& text, bool enable) {
    QPalette palette;  // without colours of its own it follows the desktop's, normal text included
    if (!enable) {
        const QPalette desktop = QApplication::palette(&text);
        for (const auto role : {QPalette::WindowText, QPalette::Text}) {
            palette.setColor(QPalette::All, role, desktop.color(QPalette::Disabled, role));
        }
    }
    text.setPalette(palette);
}

void fadeIn(QWidget& view) {
    const int milliseconds = view.style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, &view);
    if (milliseconds <= 0) return;
    auto* const effect = new QGraphicsOpacityEffect(&view);
    view.setGraphicsEffect(effect);
    auto* const animation = new QPropertyAnimation(effect, "opacity", effect);
    animation->setDuration(milliseconds);
    animation->setStartValue(0.0);
    animation->setEndValue(1.0);
    // The effect goes with the animation: drawing through it costs more than drawing the view.
    QObject::connect(animation, &QPropertyAnimation::finished, &view, [&view] { view.setGraphicsEffect(nullptr); });
    animation->start();
}

}  // namespace

bool translatesAutoresizingMaskIntoConstraints(const QWidget& view) {
    const QVariant value = view.property(kTranslates);
    return !value.isValid() || value.toBool();
}

void setAndPinSubview(QWidget& container, QWidget& view, bool animated) {
    setAndPinSubview(container, view, kLayoutPriorityRequired, animated);
}

void setAndPinSubview(QWidget& container, QWidget& view, float priority, bool animated) {
    view.setProperty(kTranslates, false);
    const QList<QWidget*> children = subviewsOf(container);
    if (!children.isEmpty() && children.first() == &view) return;

    ConstraintLayout& layout = ConstraintLayout::of(container);
    if (!children.isEmpty()) layout.removeSubview(*children.first());
    layout.addSubview(view, true);
    if (animated) fadeIn(view);

    const auto pin = [&](const QWidget& first, LayoutAttribute edge, const QWidget& second) {
        layout.addConstraint({&first, edge, &second, edge, 1.0, 0.0, priority});
    };
    // The order and the items of the formats "|[view]|" and "V:|[view]|".
    pin(view, LayoutAttribute::Leading, container);
    pin(container, LayoutAttribute::Trailing, view);
    pin(view, LayoutAttribute::Top, container);
    pin(container, LayoutAttribute::Bottom, view);
}

const LayoutConstraint* getFirstTopConstraint(const QWidget& view) {
    const QWidget* const parent = view.parentWidget();
    const ConstraintLayout* const layout = parent ? ConstraintLayout::find(*parent) : nullptr;
    if (!layout) return nullptr;
    const auto found = std::ranges::find_if(layout->constraints(), [&](const LayoutConstraint& constraint) {
        return constraint.firstAttribute == LayoutAttribute::Top && constraint.mentions(&view);
    });
    return found == layout->constraints().end() ? nullptr : &*found;
}

void enableSubviews(QWidget& view, bool enable) {
    for (QWidget* const child : subviewsOf(view)) {
        if (!subviewsOf(*child).isEmpty()) {
            enableSubviews(*child, enable);
            continue;
        }
        if (isTextField(*child)) setTextColour(*child, enable);
        if (isControl(*child)) child->setEnabled(enable);
    }
}

}  // namespace ViewUtilities
