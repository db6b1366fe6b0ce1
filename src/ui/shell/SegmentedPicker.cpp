#include "ui/shell/SegmentedPicker.h"

#include <QHBoxLayout>
#include <QPushButton>

namespace lorvane {

SegmentedPicker::SegmentedPicker(const QString& accessibleName, const QStringList& options, QWidget* parent)
    : QWidget(parent) {
    setAccessibleName(accessibleName);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    group_.setExclusive(true);
    for (int i = 0; i < options.size(); ++i) {
        auto* button = new QPushButton(options[i], this);
        button->setCheckable(true);
        button->setAutoDefault(false);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        group_.addButton(button, i);
        layout->addWidget(button);
    }
    connect(&group_, &QButtonGroup::idClicked, this, &SegmentedPicker::chosen);
}

void SegmentedPicker::setCurrentIndex(int index) {
    if (QAbstractButton* button = group_.button(index); button && !button->isChecked()) button->setChecked(true);
}

}  // namespace lorvane
