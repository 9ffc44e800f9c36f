#pragma once

#include <QQuickPaintedItem>
#include <QVariantMap>

namespace kelvo {

/// The routed universes as rows of 512 cells, brighter for higher values. Setting a new frame
/// only asks for a repaint, which the scene graph runs at most once per displayed frame.
class DmxPreviewItem : public QQuickPaintedItem {
    Q_OBJECT
    /// Universe number (as text) to its channel bytes, as the model's `dmxPreview` hands it out.
    Q_PROPERTY(QVariantMap frame READ frame WRITE setFrame NOTIFY frameChanged)
    Q_PROPERTY(QColor cellColor MEMBER cellColor_)
    Q_PROPERTY(QColor labelColor MEMBER labelColor_)

public:
    static constexpr int channelsPerRow = 64;
    static constexpr int universeSize = 512;

    explicit DmxPreviewItem(QQuickItem* parent = nullptr);

    const QVariantMap& frame() const { return frame_; }
    void setFrame(const QVariantMap& frame);
    void paint(QPainter* painter) override;

signals:
    void frameChanged();

private:
    QVariantMap frame_;
    QColor cellColor_{77, 163, 255};
    QColor labelColor_{154, 164, 178};
};

} // namespace kelvo
