#include "app/Util/ViewUtilities.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QGraphicsEffect>
#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <gmock/gmock.h>

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

    QWidgetList children() const { return container.findChildren<QWidget*>(Qt::FindDirectChildrenOnly); }
    const std::vector<LayoutConstraint>& constraints() const { return ConstraintLayout::of(container).constraints(); }

    mutable QWidget container;
    QWidget first;
    QWidget second;
};

TEST_F(ViewUtilitiesTest, PinningAddsTheViewWithItsFourEdgesOnceAndFillsTheContainer) {
    ASSERT_TRUE(ViewUtilities::translatesAutoresizingMaskIntoConstraints(first));
    setAndPinSubview(container, first, 251.0F, false);
    setAndPinSubview(container, first, 500.0F, true);  // is there already

    EXPECT_FALSE(ViewUtilities::translatesAutoresizingMaskIntoConstraints(first));
    EXPECT_EQ(first.graphicsEffect(), nullptr);
    EXPECT_THAT(children(), ElementsAre(&first));
    const auto edge = [](const QWidget* one, LayoutAttribute attribute, const QWidget* other) {
        return testing::FieldsAre(one, attribute, other, attribute, 1.0, 0.0, 251.0F);
    };
    EXPECT_THAT(constraints(), ElementsAre(edge(&first, LayoutAttribute::Leading, &container),
                                           edge(&container, LayoutAttribute::Trailing, &first),
                                           edge(&first, LayoutAttribute::Top, &container),
                                           edge(&container, LayoutAttribute::Bottom, &first)));
    container.resize(360, 700);
    QApplication::processEvents();
    EXPECT_EQ(first.geometry(), QRect(0, 0, 360, 700));
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
    EXPECT_EQ(constraints().front().priority, kLayoutPriorityRequired);
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(first), nullptr);
    EXPECT_EQ(second.size(), container.size());
    EXPECT_EQ(overlay->geometry(), overlayPlace);
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
    layout.addConstraint({&first, LayoutAttribute::Bottom, &second, LayoutAttribute::Top});
    layout.addConstraint({&container, LayoutAttribute::Top, &second, LayoutAttribute::Top, 1.0, -8.0});
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(second), &constraints()[5]);
    EXPECT_EQ(ViewUtilities::getFirstTopConstraint(first), &constraints()[2]);
}

TEST_F(ViewUtilitiesTest, EnablingReachesEveryLeafAndNothingElse) {
    auto* const group = new QWidget(&container);
    auto* const button = new QPushButton(group);
    auto* const deepGroup = new QWidget(group);
    auto* const box = new QCheckBox(deepGroup);
    auto* const text = new QLabel("text", &container);
    auto* const picture = new QWidget(&container);  // neither text nor control
    const auto colour = [&] { return text->palette().color(QPalette::Active, QPalette::WindowText); };
    const QColor normal = colour();
    const QColor disabled = QApplication::palette().color(QPalette::Disabled, QPalette::WindowText);
    ASSERT_NE(normal, disabled);

    for (const bool enable : {false, true}) {
        ViewUtilities::enableSubviews(container, enable);
        for (const QWidget* const leaf : std::vector<QWidget*>{button, box, text}) EXPECT_EQ(leaf->isEnabled(), enable);
        EXPECT_EQ(colour(), enable ? normal : disabled);
        for (const QWidget* const other : {group, deepGroup, picture, &container}) EXPECT_TRUE(other->isEnabled());
    }
}

}  // namespace
