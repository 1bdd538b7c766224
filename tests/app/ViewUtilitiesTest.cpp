#include "app/Util/ViewUtilities.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QGraphicsEffect>
#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <memory>
#include <vector>

namespace {

using testing::ElementsAre;
using ViewUtilities::setAndPinSubview;

/// A container of 300 x 200 with two screens that it does not own.
struct ViewUtilitiesTest : testing::Test {
    ViewUtilitiesTest() {
        container.resize(300, 200);
        container.show();
    }

    std::vector<QWidget*> children() const {
        const auto list = container.findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
        return {list.begin(), list.end()};
    }

    const std::vector<LayoutConstraint>& constraints() const { return ConstraintLayout::of(container).constraints(); }

    mutable QWidget container;
    QWidget first;
    QWidget second;
};

TEST_F(ViewUtilitiesTest, PinningIntoAnEmptyContainerAddsTheViewWithItsFourEdges) {
    ASSERT_TRUE(ViewUtilities::translatesAutoresizingMaskIntoConstraints(first));
    setAndPinSubview(container, first, 251.0F, false);

    EXPECT_FALSE(ViewUtilities::translatesAutoresizingMaskIntoConstraints(first));
    EXPECT_THAT(children(), ElementsAre(&first));
    struct Expected {
        const QWidget* firstItem;
        int attribute;
        const QWidget* secondItem;
    };
    const std::vector<Expected> expected = {
        {&first, 5, &container}, {&container, 6, &first}, {&first, 3, &container}, {&container, 4, &first}};
    ASSERT_EQ(constraints().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const LayoutConstraint& c = constraints()[i];
        EXPECT_EQ(c.firstItem, expected[i].firstItem) << i;
        EXPECT_EQ(c.secondItem, expected[i].secondItem) << i;
        EXPECT_EQ(static_cast<int>(c.firstAttribute), expected[i].attribute) << i;
        EXPECT_EQ(static_cast<int>(c.secondAttribute), expected[i].attribute) << i;
        EXPECT_EQ(c.constant, 0) << i;
        EXPECT_EQ(c.multiplier, 1) << i;
        EXPECT_EQ(c.priority, 251.0F) << i;
    }
}

TEST_F(ViewUtilitiesTest, PinnedViewFillsTheContainerAtEverySize) {
    setAndPinSubview(container, first);
    for (const QSize size : {QSize(300, 200), QSize(360, 700), QSize(1200, 90)}) {
        container.resize(size);
        QApplication::processEvents();
        EXPECT_EQ(first.geometry(), QRect(QPoint(0, 0), size));
        EXPECT_TRUE(first.isVisible());
    }
}

TEST_F(ViewUtilitiesTest, PinningTheShownViewAgainChangesNothing) {
    setAndPinSubview(container, first);
    const auto* const before = constraints().data();
    setAndPinSubview(container, first, 500.0F, true);
    EXPECT_EQ(constraints().size(), 4U);
    EXPECT_EQ(constraints().data(), before);
    EXPECT_EQ(constraints().front().priority, kLayoutPriorityRequired);
    EXPECT_THAT(children(), ElementsAre(&first));
    EXPECT_EQ(first.graphicsEffect(), nullptr);
}

TEST_F(ViewUtilitiesTest, OnlyTheFirstChildIsReplacedAndKeepsNoConstraint) {
    auto* const overlay = new QWidget;  // owned by the container
    setAndPinSubview(container, first);
    ConstraintLayout::of(container).addSubview(*overlay, false);
    const QRect overlayPlace(10, 20, 30, 40);
    overlay->setGeometry(overlayPlace);

    setAndPinSubview(container, second);
    QApplication::processEvents();
    EXPECT_THAT(children(), ElementsAre(&second, overlay));
    EXPECT_EQ(first.parentWidget(), nullptr);
    EXPECT_FALSE(first.isVisible());
    EXPECT_EQ(constraints().size(), 4U);
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(first), nullptr);
    EXPECT_EQ(second.size(), container.size());
    EXPECT_EQ(overlay->geometry(), overlayPlace);

    setAndPinSubview(container, first);  // and back
    EXPECT_THAT(children(), ElementsAre(&first, overlay));
    EXPECT_EQ(constraints().size(), 4U);
}

TEST_F(ViewUtilitiesTest, AnimatedPinningEndsWithThePlainView) {
    setAndPinSubview(container, first, true);
    EXPECT_THAT(children(), ElementsAre(&first));
    while (first.graphicsEffect()) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    EXPECT_EQ(first.size(), container.size());
}

TEST_F(ViewUtilitiesTest, FirstTopConstraintIsTheFirstOneThatStartsWithTopAndMentionsTheView) {
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(first), nullptr) << "no parent";
    QWidget plain(&container);
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(plain), nullptr) << "a parent without constraints";
    plain.setParent(nullptr);

    setAndPinSubview(container, first);
    ConstraintLayout& layout = ConstraintLayout::of(container);
    layout.addSubview(second, false);
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(second), nullptr);

    // Below the first view by 8: second item is the first view, and Top stands second in the one before it.
    LayoutConstraint bottomToTop{&first, LayoutAttribute::Bottom, &second, LayoutAttribute::Top};
    LayoutConstraint topToTop{&container, LayoutAttribute::Top, &second, LayoutAttribute::Top, 1.0, -8.0};
    layout.addConstraint(bottomToTop);
    layout.addConstraint(topToTop);
    const LayoutConstraint* found = ViewUtilities::getFirstTopConstraint(second);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->secondItem, &second);
    EXPECT_EQ(found->constant, -8.0);
    found = ViewUtilities::getFirstTopConstraint(first);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->firstItem, &first);
}

TEST_F(ViewUtilitiesTest, HigherPriorityWinsAnEdgeAndLeadingFollowsTheTextDirection) {
    ConstraintLayout& layout = ConstraintLayout::of(container);
    layout.addSubview(first, true);
    using A = LayoutAttribute;
    layout.addConstraint({&first, A::Leading, &container, A::Leading, 1.0, 10.0, 250.0F});
    layout.addConstraint({&first, A::Leading, &container, A::Leading, 1.0, 30.0, 750.0F});
    layout.addConstraint({&first, A::Width, &container, A::Width, 0.5});
    layout.addConstraint({&container, A::Top, &first, A::Top, 1.0, -7.0});
    layout.addConstraint({&container, A::Bottom, &first, A::Bottom, 1.0, 3.0});
    layout.activate();
    EXPECT_EQ(first.geometry(), QRect(30, 7, 150, 190));

    container.setLayoutDirection(Qt::RightToLeft);
    layout.invalidate();
    layout.activate();
    EXPECT_EQ(first.geometry(), QRect(300 - 30 - 150, 7, 150, 190));
    layout.addConstraint({&container, A::Trailing, &first, A::Trailing, 1.0, 20.0, 750.0F});
    layout.activate();
    EXPECT_EQ(first.geometry(), QRect(20, 7, 300 - 30 - 20, 190));
}

TEST_F(ViewUtilitiesTest, EnablingReachesEveryLeafAndNothingElse) {
    auto* const group = new QWidget(&container);
    auto* const button = new QPushButton(group);
    auto* const deepGroup = new QWidget(group);
    auto* const box = new QCheckBox(deepGroup);
    auto* const text = new QLabel("text", &container);
    auto* const picture = new QWidget(&container);  // neither text nor control
    const QColor normal = text->palette().color(QPalette::Active, QPalette::WindowText);
    const QColor disabled = QApplication::palette().color(QPalette::Disabled, QPalette::WindowText);
    ASSERT_NE(normal, disabled);

    ViewUtilities::enableSubviews(container, false);
    EXPECT_FALSE(button->isEnabled());
    EXPECT_FALSE(box->isEnabled());
    EXPECT_FALSE(text->isEnabled());
    EXPECT_EQ(text->palette().color(QPalette::Active, QPalette::WindowText), disabled);
    for (const QWidget* const untouched : {group, deepGroup, picture, &container}) EXPECT_TRUE(untouched->isEnabled());

    ViewUtilities::enableSubviews(container, true);
    EXPECT_TRUE(button->isEnabled());
    EXPECT_TRUE(box->isEnabled());
    EXPECT_TRUE(text->isEnabled());
    EXPECT_EQ(text->palette().color(QPalette::Active, QPalette::WindowText), normal);
}

}  // namespace
