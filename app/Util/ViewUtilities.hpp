#pragma once

#include "app/Util/ConstraintLayout.hpp"

class QWidget;

/// Operations on any view of the window: swapping whole screens in one container, finding a constraint, switching a
/// tree of controls on and off. Main thread only; nothing here fails.
namespace ViewUtilities {

/// Makes `view` the container's first child, pinned to all four edges. What was the first child before leaves the
/// container (hidden, without a parent, kept by its owner); any further children stay. A view that is the first child
/// already stays as it is, and no constraint is added.
/// @param priority  of the four constraints; kLayoutPriorityRequired when left out
/// @param animated  fades the view in, for as long as the desktop wants animations to last
void setAndPinSubview(QWidget& container, QWidget& view, bool animated = false);
void setAndPinSubview(QWidget& container, QWidget& view, float priority, bool animated);

/// The first constraint of the view's parent whose first attribute is Top and which mentions the view.
/// @return null when there is none; valid until the parent's constraints change
const LayoutConstraint* getFirstTopConstraint(const QWidget& view);

/// Switches every control below the view on or off. A text takes the normal or the disabled text colour with it.
void enableSubviews(QWidget& view, bool enable);

/// Whether a view's geometry is its own business (as it is at first) or that of its constraints.
bool translatesAutoresizingMaskIntoConstraints(const QWidget& view);

}  // namespace ViewUtilities
