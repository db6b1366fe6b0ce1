#include "ui/shell/ChoiceGroup.h"

#include <QHBoxLayout>
#include <QRadioButton>

namespace lorvane {

void keepTabStopOnChecked(QButtonGroup& group) {
    auto apply = [&group] {
        const bool anyChecked = group.checkedButton() != nullptr;
        for (QAbstractButton* button : group.buttons()) {
            button->setFocusPolicy(!anyChecked || button->isChecked() ? Qt::StrongFocus : Qt::ClickFocus);
        }
    };
    QObject::connect(&group, &QButtonGroup::buttonToggled, &group, apply);
    apply();
}

ChoiceGroup::ChoiceGroup(const QString& title, const QStringList& options, const QString& description,
                         const QStringList& descriptions, QWidget* parent)
    : QGroupBox(title, parent) {
    setAccessibleName(title);
    setAccessibleDescription(description);
    auto* layout = new QHBoxLayout(this);
    group_.setExclusive(true);
    for (int i = 0; i < options.size(); ++i) {
        auto* button = new QRadioButton(options[i], this);
        button->setAccessibleName(options[i]);
        button->setAccessibleDescription(i < descriptions.size() ? descriptions[i] : description);
        group_.addButton(button, i);
        layout->addWidget(button);
    }
    layout->addStretch(1);
    keepTabStopOnChecked(group_);
    connect(&group_, &QButtonGroup::idClicked, this, &ChoiceGroup::chosen);
}

void ChoiceGroup::setCurrentIndex(int index) {
    if (QAbstractButton* button = group_.button(index); button && !button->isChecked()) button->setChecked(true);
}

}  // namespace lorvane
