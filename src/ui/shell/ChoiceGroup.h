#pragma once
// An exclusive choice shown the desktop's way: a titled group box of radio buttons, read by screen
// readers as a group of radio buttons with the title as its name.

#include <QButtonGroup>
#include <QGroupBox>
#include <QStringList>

class QAbstractButton;
class QRadioButton;

namespace lorvane {

// Makes the checked button the group's one Tab stop (arrow keys move within the group), as the
// desktop's own radio groups do; with nothing checked every button stays a stop.
void keepTabStopOnChecked(QButtonGroup& group);

class ChoiceGroup final : public QGroupBox {
    Q_OBJECT
public:
    // `descriptions` (optional, one per option) are the options' accessible descriptions.
    ChoiceGroup(const QString& title, const QStringList& options, const QString& description,
                const QStringList& descriptions = {}, QWidget* parent = nullptr);

    int currentIndex() const { return group_.checkedId(); }
    // Shows a value without reporting it.
    void setCurrentIndex(int index);
    QAbstractButton* button(int index) const { return group_.button(index); }
    int count() const { return static_cast<int>(group_.buttons().size()); }

signals:
    // The user chose an option.
    void chosen(int index);

private:
    QButtonGroup group_;
};

}  // namespace lorvane
