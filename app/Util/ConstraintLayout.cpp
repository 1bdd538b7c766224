#include "app/Util/ConstraintLayout.hpp"

#include <QWidget>

#include <algorithm>

ConstraintLayout& ConstraintLayout::of(QWidget& container) {
    auto* layout = container.layout();
    if (!layout) return *new ConstraintLayout(container);  // owned by the container
    auto* own = dynamic_cast<ConstraintLayout*>(layout);
    Q_ASSERT_X(own, "ConstraintLayout", "the container has a layout of another kind");
    return *own;
}

const ConstraintLayout* ConstraintLayout::find(const QWidget& container) {
    return dynamic_cast<const ConstraintLayout*>(container.layout());
}

ConstraintLayout::ConstraintLayout(QWidget& container) : QLayout(&container) {
    setContentsMargins(0, 0, 0, 0);
}

void ConstraintLayout::addSubview(QWidget& view, bool first) {
    addChildWidget(&view);
    addItem(new QWidgetItem(&view));
    if (first) {
        std::rotate(mItems.begin(), mItems.end() - 1, mItems.end());
        view.lower();  // the first child lies beneath its siblings
    }
    view.show();
    invalidate();
}

void ConstraintLayout::removeSubview(QWidget& view) {
    // Qt takes the item out, through takeAt, when the child leaves.
    view.hide();
    view.setParent(nullptr);
}

void ConstraintLayout::addConstraint(const LayoutConstraint& constraint) {
    mConstraints.push_back(constraint);
    invalidate();
}

void ConstraintLayout::addItem(QLayoutItem* item) {
    mItems.emplace_back(item);
}

QLayoutItem* ConstraintLayout::itemAt(int index) const {
    return index >= 0 && index < count() ? mItems[static_cast<std::size_t>(index)].get() : nullptr;
}

QLayoutItem* ConstraintLayout::takeAt(int index) {
    if (index < 0 || index >= count()) return nullptr;
    const auto position = mItems.begin() + index;
    QLayoutItem* const item = position->release();
    mItems.erase(position);
    const QWidget* const view = item->widget();
    std::erase_if(mConstraints, [view](const LayoutConstraint& constraint) { return constraint.mentions(view); });
    return item;
}

template <typename Measure>
QSize ConstraintLayout::largest(Measure measure) const {
    QSize size(0, 0);
    for (const auto& item : mItems) size = size.expandedTo(measure(*item));
    return size;
}

QSize ConstraintLayout::sizeHint() const {
    return largest([](const QLayoutItem& item) { return item.sizeHint(); });
}

QSize ConstraintLayout::minimumSize() const {
    return largest([](const QLayoutItem& item) { return item.minimumSize(); });
}

bool ConstraintLayout::hasHeightForWidth() const {
    return std::ranges::any_of(mItems, [](const auto& item) { return item->hasHeightForWidth(); });
}

int ConstraintLayout::heightForWidth(int width) const {
    return largest([width](const QLayoutItem& item) {
               return QSize(0, item.hasHeightForWidth() ? item.heightForWidth(width) : item.sizeHint().height());
           })
        .height();
}

void ConstraintLayout::setGeometry(const QRect& rectangle) {
    QLayout::setGeometry(rectangle);
    for (const auto& item : mItems) {
        if (isPinned(item->widget())) item->setGeometry(rectangle);
    }
}

bool ConstraintLayout::isPinned(const QWidget* view) const {
    return std::ranges::any_of(mConstraints,
                               [view](const LayoutConstraint& constraint) { return constraint.mentions(view); });
}
