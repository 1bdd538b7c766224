#pragma once

#include <QLayout>
#include <QSize>

#include <memory>
#include <vector>

/// What a constraint ties together. The numbers are those that interface files use.
enum class LayoutAttribute {
    NotAnAttribute = 0,
    Top = 3,
    Bottom = 4,
    Leading = 5,
    Trailing = 6,
};

/// The highest priority, 1000: the constraint must hold.
inline constexpr float kLayoutPriorityRequired = 1000.0F;

/// A record of one constraint: first.firstAttribute = second.secondAttribute * multiplier + constant. Both views are
/// borrowed; a constraint leaves its layout when one of them leaves the container.
struct LayoutConstraint {
    const QWidget* firstItem = nullptr;
    LayoutAttribute firstAttribute = LayoutAttribute::NotAnAttribute;
    const QWidget* secondItem = nullptr;
    LayoutAttribute secondAttribute = LayoutAttribute::NotAnAttribute;
    double multiplier = 1.0;
    double constant = 0.0;  ///< device-independent pixels
    float priority = kLayoutPriorityRequired;

    bool mentions(const QWidget* view) const { return firstItem == view || secondItem == view; }
};

/// Keeps a container's constraint records and its children. A child that a constraint mentions is pinned: it fills the
/// container, which is what the one set of constraints that is ever added (four equal edges) says. A child without a
/// constraint keeps its place. The container owns the layout. Main thread only.
class ConstraintLayout final : public QLayout {
  public:
    /// The container's constraint layout, made at the first call. The container must have no layout of another kind.
    static ConstraintLayout& of(QWidget& container);
    /// The same, or null when the container has none.
    static const ConstraintLayout* find(const QWidget& container);

    explicit ConstraintLayout(QWidget& container);

    /// Takes a view in as the container's first or last child. It moves here from wherever it was.
    void addSubview(QWidget& view, bool first);
    /// Takes a view out, with the constraints that mention it. It is hidden and has no parent afterwards: its owner
    /// keeps it.
    void removeSubview(QWidget& view);

    void addConstraint(const LayoutConstraint& constraint);
    /// In the order in which they were added.
    const std::vector<LayoutConstraint>& constraints() const { return mConstraints; }

    void addItem(QLayoutItem* item) override;
    int count() const override { return static_cast<int>(mItems.size()); }
    QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;
    QSize sizeHint() const override;
    QSize minimumSize() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;
    void setGeometry(const QRect& rectangle) override;

  private:
    bool isPinned(const QWidget* view) const;
    template <typename Measure>
    QSize largest(Measure measure) const;

    std::vector<std::unique_ptr<QLayoutItem>> mItems;
    std::vector<LayoutConstraint> mConstraints;
};
