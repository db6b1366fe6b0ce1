#pragma once
// A row of exclusive buttons standing in for a segmented control.

#include <QButtonGroup>
#include <QStringList>
#include <QWidget>

class QAbstractButton;

namespace lorvane {

class SegmentedPicker final : public QWidget {
    Q_OBJECT
public:
    SegmentedPicker(const QString& accessibleName, const QStringList& options, QWidget* parent = nullptr);

    int currentIndex() const { return group_.checkedId(); }
    // Shows a value without reporting it.
    void setCurrentIndex(int index);
    QAbstractButton* button(int index) const { return group_.button(index); }

signals:
    // The user chose an option.
    void chosen(int index);

private:
    QButtonGroup group_;
};

}  // namespace lorvane
