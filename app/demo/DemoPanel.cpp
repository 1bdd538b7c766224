#include "app/demo/DemoPanel.hpp"

#include <QComboBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QStringList>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

// Device-independent pixels.
constexpr int kPanelWidth = 300;
constexpr int kRowPadding = 8;

QPushButton* addButton(QVBoxLayout* column, const char* text) {
    auto* const button = new QPushButton(QString::fromUtf8(text));
    column->addWidget(button);
    return button;
}

}  // namespace

DemoPanel::DemoPanel(DemoDevice& device)
    : QDockWidget(QStringLiteral("Simulated Device")),
      mDevice(device),
      mAttached(new QLabel),
      mState(new QLabel),
      mStore(new QTableWidget(0, 2)),
      mFaults(new QComboBox),
      mPending(new QLabel) {
    setFeatures(NoDockWidgetFeatures);
    auto* const content = new QWidget;
    auto* const column = new QVBoxLayout(content);

    auto* const facts = new QFormLayout;
    facts->addRow(QStringLiteral("USB:"), mAttached);
    facts->addRow(QStringLiteral("State:"), mState);
    column->addLayout(facts);
    mCableButton = addButton(column, "&Plug In");
    connect(mCableButton, &QPushButton::clicked, this, [this] { mCable ? mDevice.unplug() : mDevice.plug(); });

    mStore->setHorizontalHeaderLabels({QStringLiteral("Setting"), QStringLiteral("Value")});
    mStore->setAccessibleName(QStringLiteral("Contents of the device’s settings store"));
    mStore->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    mStore->verticalHeader()->hide();
    mStore->verticalHeader()->setDefaultSectionSize(mStore->fontMetrics().height() + kRowPadding);
    mStore->setEditTriggers(QAbstractItemView::NoEditTriggers);
    mStore->setTabKeyNavigation(false);
    column->addWidget(mStore, 1);
    connect(addButton(column, "&Fill Store Again"), &QPushButton::clicked, this, [this] {
        mDevice.change([](simulator::Device& simulated) { simulated.store() = simulator::SettingsStore::wellUsed(); });
    });

    for (const auto& fault : simulator::faultCatalogue()) mFaults->addItem(QString::fromStdString(fault.name));
    mFaults->setAccessibleName(QStringLiteral("What the device does wrong"));
    mFaults->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    column->addWidget(mFaults);
    connect(addButton(column, "&Add Fault"), &QPushButton::clicked, this, [this] {
        mDevice.change([this](simulator::Device& simulated) {
            simulated.addFault(simulator::faultCatalogue()[static_cast<std::size_t>(mFaults->currentIndex())]);
        });
    });
    connect(addButton(column, "&No Faults"), &QPushButton::clicked, this,
            [this] { mDevice.change([](simulator::Device& simulated) { simulated.faults().clear(); }); });
    mPending->setWordWrap(true);
    mPending->setTextFormat(Qt::PlainText);
    column->addWidget(mPending);

    content->setMinimumWidth(kPanelWidth);
    setWidget(content);
}

void DemoPanel::show(const DemoDevice::View& view) {
    mCable = view.cable;
    mAttached->setText(view.isAttached ? QStringLiteral("attached")
                       : view.cable    ? QStringLiteral("not attached (cable is in)")
                                       : QStringLiteral("not attached (cable is out)"));
    mState->setText(QString::fromUtf8(simulator::bootStateName(view.state)));
    mCableButton->setText(mCable ? QStringLiteral("&Unplug") : QStringLiteral("&Plug In"));

    mStore->setRowCount(static_cast<int>(view.store.size()));
    int row = 0;
    for (const auto& [name, value] : view.store) {
        mStore->setItem(row, 0, new QTableWidgetItem(QString::fromStdString(name)));
        mStore->setItem(row, 1, new QTableWidgetItem(QString::fromStdString(value)));
        ++row;
    }

    QStringList faults;
    for (const auto& name : view.pendingFaults) faults.append(QString::fromStdString(name));
    mPending->setText(faults.isEmpty() ? QStringLiteral("No fault is waiting.")
                                       : QStringLiteral("Waiting: ") + faults.join(QStringLiteral("; ")));
}
