// The painting of the shortened text.
// SPDX-License-Identifier: Apache-2.0
#include "elided_label.h"

#include <QPainter>

namespace Browser {
void ElidedLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.drawText(contentsRect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width()));
}
} // namespace Browser
