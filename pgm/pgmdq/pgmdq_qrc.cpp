// The resource bundle's unit: the icons of the message-log lines. The bundle's data and its
// registration at load (and release at unload) come from the resource compiler's output, taken in
// after the shared tables so that this unit's statics are built in the documented order.
#include "pgmdq_msgs.h"

#include <QIconEngine>
#include <QPainter>

namespace {

class LAZY_RESOURCE_ICON_ENGINE : public QIconEngine {
public:
    explicit LAZY_RESOURCE_ICON_ENGINE(QString path) : m_path(std::move(path)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        icon().paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().pixmap(size, mode, state);
    }
    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) const override
    {
        return icon().availableSizes(mode, state);
    }
    QString iconName() const override { return m_path; }
    QIconEngine* clone() const override { return new LAZY_RESOURCE_ICON_ENGINE(m_path); }
    void virtual_hook(int id, void* data) override
    {
        if (id == QIconEngine::IsNullHook)
            *static_cast<bool*>(data) = icon().isNull();
        else
            QIconEngine::virtual_hook(id, data);
    }

private:
    const QIcon& icon() const
    {
        if (m_icon.isNull())
            m_icon = QIcon(m_path);
        return m_icon;
    }

    QString m_path;
    mutable QIcon m_icon;
};

} // namespace

QIcon pgmdq_lazy_resource_icon(const char* resource_path)
{
    return QIcon(new LAZY_RESOURCE_ICON_ENGINE(QString::fromLatin1(resource_path)));
}

#include "pgmdq_qrc_data.inc"
