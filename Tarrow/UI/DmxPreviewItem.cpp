#include "UI/DmxPreviewItem.h"

#include <QPainter>

#include <algorithm>

namespace kelvo {

DmxPreviewItem::DmxPreviewItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
    setOpaquePainting(false);
}

void DmxPreviewItem::setFrame(const QVariantMap& frame) {
    if (frame == frame_)
        return;
    frame_ = frame;
    emit frameChanged();
    update();
}

void DmxPreviewItem::paint(QPainter* painter) {
    if (frame_.isEmpty())
        return;
    std::vector<std::pair<qint64, QByteArray>> universes;
    for (auto it = frame_.cbegin(); it != frame_.cend(); ++it)
        universes.emplace_back(it.key().toLongLong(), it.value().toByteArray());
    std::ranges::sort(universes, {}, &std::pair<qint64, QByteArray>::first);

    constexpr int rows = universeSize / channelsPerRow;
    const qreal labelWidth = 40;
    const qreal cellWidth = (width() - labelWidth) / channelsPerRow;
    const qreal bandHeight = height() / qreal(universes.size());
    const qreal cellHeight = std::max<qreal>(1, (bandHeight - 4) / rows);
    painter->setPen(labelColor_);
    for (std::size_t u = 0; u < universes.size(); ++u) {
        const qreal top = qreal(u) * bandHeight;
        painter->drawText(QRectF(0, top, labelWidth - 4, 16), Qt::AlignLeft | Qt::AlignTop,
                          QString::number(universes[u].first));
        const QByteArray& bytes = universes[u].second;
        const int count = std::min<int>(int(bytes.size()), universeSize);
        for (int c = 0; c < count; ++c) {
            const int value = static_cast<unsigned char>(bytes[c]);
            QColor cell = cellColor_;
            cell.setAlphaF(value == 0 ? 0.06f : 0.2f + 0.8f * float(value) / 255.0f);
            painter->fillRect(QRectF(labelWidth + (c % channelsPerRow) * cellWidth,
                                     top + (c / channelsPerRow) * cellHeight, cellWidth - 1,
                                     cellHeight - 1),
                              cell);
        }
    }
}

} // namespace kelvo
