// ElidedLabel: a line of text that loses its middle when there is no room for all of it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLabel>

namespace Browser {
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent) : QLabel(parent) { setTextFormat(Qt::PlainText); }

    /// Leaves the window free to become narrower than the text.
    QSize minimumSizeHint() const override { return {fontMetrics().averageCharWidth() * 8, fontMetrics().height()}; }

protected:
    void paintEvent(QPaintEvent* event) override;
};
} // namespace Browser
