#include "app/Util/ConstraintLayout.hpp"

#include <QWidget>
#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace {

/// Attributes with the text direction worked in: leading is left or right.
LayoutAttribute resolved(LayoutAttribute attribute, Qt::LayoutDirection direction) {
    const bool leftToRight = direction == Qt::LeftToRight;
    if (attribute == LayoutAttribute::Leading) return leftToRight ? LayoutAttribute::Left : LayoutAttribute::Right;
    if (attribute == LayoutAttribute::Trailing) return leftToRight ? LayoutAttribute::Right : LayoutAttribute::Left;
    return attribute;
}

/// Whether the attribute's positions count from the right: leading and trailing ones count in reading direction.
bool isMirrored(LayoutAttribute attribute, Qt::LayoutDirection direction) {
    return resolved(attribute, direction) != resolved(attribute, Qt::LeftToRight);
}

/// Positions count from the container's top left corner, those of leading and trailing from its leading edge.
double valueOf(LayoutAttribute attribute, const QSize& container) {
    switch (attribute) {
        case LayoutAttribute::Right:
        case LayoutAttribute::Trailing:
        case LayoutAttribute::Width:
            return container.width();
        case LayoutAttribute::Bottom:
        case LayoutAttribute::Height:
            return container.height();
        case LayoutAttribute::NotAnAttribute:
        case LayoutAttribute::Left:
        case LayoutAttribute::Top:
        case LayoutAttribute::Leading:
            return 0;
    }
    return 0;
}

struct Fixed {
    double value;
    float priority;
};
using Solution = std::array<std::optional<Fixed>, 9>;  ///< by attribute number

std::optional<double> at(const Solution& solution, LayoutAttribute attribute) {
    const auto& fixed = solution[static_cast<std::size_t>(attribute)];
    return fixed ? std::optional(fixed->value) : std::nullopt;
}

/// Start and length along one axis from what is fixed, and from what the view has now where nothing is.
std::pair<int, int> span(std::optional<double> start, std::optional<double> end, std::optional<double> length,
                         int currentStart, int currentLength) {
    if (start && end) return {std::lround(*start), std::lround(*end - *start)};
    const double extent = length.value_or(currentLength);
    if (end) return {std::lround(*end - extent), std::lround(extent)};
    return {std::lround(start.value_or(currentStart)), std::lround(extent)};
}

}  // namespace

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
ConstraintLayout::~ConstraintLayout() = default;

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
    std::erase_if(mConstraints,
                  [view](const LayoutConstraint& c) { return c.firstItem == view || c.secondItem == view; });
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
    return std::any_of(mItems.begin(), mItems.end(), [](const auto& item) { return item->hasHeightForWidth(); });
}

int ConstraintLayout::heightForWidth(int width) const {
    return largest([width](const QLayoutItem& item) {
               return QSize(0, item.hasHeightForWidth() ? item.heightForWidth(width) : item.sizeHint().height());
           })
        .height();
}

void ConstraintLayout::setGeometry(const QRect& rectangle) {
    QLayout::setGeometry(rectangle);
    for (const auto& item : mItems) item->setGeometry(frameOf(*item->widget(), rectangle));
}

QRect ConstraintLayout::frameOf(const QWidget& view, const QRect& container) const {
    const QWidget* const parent = parentWidget();
    Solution solution;
    for (const LayoutConstraint& c : mConstraints) {
        // first = m * second + k, and its inverse second = (first - k) / m, where the view stands second.
        const bool viewFirst = c.firstItem == &view && c.secondItem == parent;
        const bool viewSecond = c.secondItem == &view && c.firstItem == parent && c.multiplier != 0;
        if (!viewFirst && !viewSecond) continue;
        double value = viewFirst ? valueOf(c.secondAttribute, container.size()) * c.multiplier + c.constant
                                 : (valueOf(c.firstAttribute, container.size()) - c.constant) / c.multiplier;
        const LayoutAttribute attribute = viewFirst ? c.firstAttribute : c.secondAttribute;
        if (isMirrored(attribute, parent->layoutDirection())) value = container.width() - value;
        auto& fixed = solution[static_cast<std::size_t>(resolved(attribute, parent->layoutDirection()))];
        if (!fixed || fixed->priority < c.priority) fixed = Fixed{value, c.priority};
    }
    const QRect current = view.geometry().translated(-container.topLeft());
    const auto [x, width] = span(at(solution, LayoutAttribute::Left), at(solution, LayoutAttribute::Right),
                                 at(solution, LayoutAttribute::Width), current.x(), current.width());
    const auto [y, height] = span(at(solution, LayoutAttribute::Top), at(solution, LayoutAttribute::Bottom),
                                  at(solution, LayoutAttribute::Height), current.y(), current.height());
    return QRect(x, y, width, height).translated(container.topLeft());
}
