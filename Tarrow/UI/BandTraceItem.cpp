#include "UI/BandTraceItem.h"

#include <QPainter>
#include <QPolygonF>

#include <algorithm>

namespace kelvo {

BandTraceItem::BandTraceItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
    setOpaquePainting(false);
    // Antialiased 2 px strokes tripled the raster cost of the whole window at 60 Hz.
    setAntialiasing(false);
}

void BandTraceItem::setTrace(const QVariantMap& trace) {
    trace_ = trace;
    emit traceChanged();
    update();
}

void BandTraceItem::paint(QPainter* painter) {
    const qreal step = width() / (capacity - 1);
    const qreal h = height();
    painter->setRenderHint(QPainter::Antialiasing, false);
    const std::pair<const char*, QColor> bands[] = {
        {"low", lowColor_}, {"mid", midColor_}, {"high", highColor_}};
    QPolygonF line;
    for (const auto& [key, colour] : bands) {
        const QVariantList values = trace_.value(QString::fromLatin1(key)).toList();
        const int count = std::min<int>(int(values.size()), capacity);
        if (count < 2)
            continue;
        line.clear();
        const int first = int(values.size()) - count;
        const int start = capacity - count;
        for (int i = 0; i < count; ++i) {
            const qreal v = std::clamp(values[first + i].toDouble(), 0.0, 1.0);
            line << QPointF((start + i) * step, h - v * h);
        }
        painter->setPen(QPen(colour, 2));
        painter->drawPolyline(line);
    }
}

} // namespace kelvo
