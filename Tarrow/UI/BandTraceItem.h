#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QVariantMap>

namespace kelvo {

/// The live low/mid/high trace: three polylines, newest at the right edge. Painted in C++
/// because a script canvas redrawn at the tick's rate cost the main thread a quarter of a core.
class BandTraceItem : public QQuickPaintedItem {
    Q_OBJECT
    /// "low", "mid" and "high" to lists of levels in 0…1, as the model's `micTrace` hands it out.
    Q_PROPERTY(QVariantMap trace READ trace WRITE setTrace NOTIFY traceChanged)
    Q_PROPERTY(QColor lowColor MEMBER lowColor_)
    Q_PROPERTY(QColor midColor MEMBER midColor_)
    Q_PROPERTY(QColor highColor MEMBER highColor_)

public:
    /// Points across the full width; a shorter trace starts further right.
    static constexpr int capacity = 160;

    explicit BandTraceItem(QQuickItem* parent = nullptr);

    const QVariantMap& trace() const { return trace_; }
    void setTrace(const QVariantMap& trace);
    void paint(QPainter* painter) override;

signals:
    void traceChanged();

private:
    QVariantMap trace_;
    QColor lowColor_{Qt::red};
    QColor midColor_{Qt::yellow};
    QColor highColor_{Qt::cyan};
};

} // namespace kelvo
