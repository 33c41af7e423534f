// Drawing a trace: the names' places and colours, the rows' paths and labels, the internal errors
// of the drawing calls; and what the items paint: pixel for pixel the classic drawing of their
// paths and labels (a path item per wave or rail, a text item per label) at 1:1, and every edge
// still visible zoomed out.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_file_bytes.h"
#include "wave/wave_test_trace.h"

#include <QGraphicsPathItem>
#include <QGraphicsTextItem>
#include <QImage>
#include <QPainter>
#include <QtTest>

using namespace wave_test;

namespace {

QList<QPointF> points_of(const QPainterPath& path)
{
    QList<QPointF> points;
    for (int i = 0; i < path.elementCount(); ++i)
        points.append(path.elementAt(i));
    return points;
}

double rendered_width(const QString& text)
{
    return QGraphicsTextItem(text).boundingRect().width();
}

// The classic drawing of what the widget drew: each row's paths as thin path items in its colour
// and its labels as white text items under them, at the row's place.
void draw_classic(QGraphicsScene& classic, const PGMDQ_DEBUG_WAVEFORM_SCENE& drawn)
{
    classic.setBackgroundBrush(Qt::black);
    for (const PGMDQ_DEBUG_WAVE_ITEM* row : drawn.wave_items()) {
        QPen pen(row->colour(), 0);
        pen.setCosmetic(true);
        for (const PGMDQ_DEBUG_BUS_LABEL& label : row->labels()) {
            QGraphicsTextItem* text = classic.addText(label.text);
            text->setDefaultTextColor(Qt::white);
            text->setPos(row->pos() + label.position);
        }
        for (const QPainterPath& path : row->paths())
            classic.addPath(path, pen)->setPos(row->pos());
    }
    classic.setSceneRect(drawn.sceneRect());
}

QImage render(QGraphicsScene& scene, const QRectF& source, const QSize& size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    scene.render(&painter, QRectF(QPointF(0, 0), size), source, Qt::IgnoreAspectRatio);
    return image;
}

bool lit(const QImage& image, int x, int y)
{
    return (image.pixel(x, y) & 0xFFFFFF) != 0;
}

} // namespace

class TEST_WAVE_DRAWING : public QObject {
    Q_OBJECT

private slots:
    void names_in_their_rows_and_colours()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(1024));
        QStringList texts;
        for (QGraphicsItem* item : widget.text_scene()->items(Qt::AscendingOrder))
            if (auto* name = qgraphicsitem_cast<QGraphicsTextItem*>(item)) {
                texts << name->toPlainText();
                QCOMPARE(name->pos(), QPointF(0, 33 * texts.size()));
                QCOMPARE(name->defaultTextColor(), texts.size() % 2 ? QColor(Qt::red) : QColor(Qt::white));
            }
        QCOMPARE(texts.size(), 15);
        QCOMPARE(texts[3], QString("ir_in[11:0]"));
        QCOMPARE(texts.mid(12), (QStringList{"data1out_reg", "total_bit_count[11:0]", "tdo"}));
        QCOMPARE(widget.text_scene()->sceneRect().height(), 30.0 * 18 + 3 * 15);
    }

    // tck high, low, low, high: level 0 is high, 20 low; edges are vertical at sample bounds.
    void square_wave_geometry()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, {1, 0, 0, 1});
        const PGMDQ_DEBUG_WAVE_ITEM* tck = widget.waveform_scene()->wave_items()[0];
        QCOMPARE(tck->pos(), QPointF(0, 33));
        QCOMPARE(points_of(tck->paths()[0]), (QList<QPointF>{{0, 0}, {15, 0}, {15, 20}, {45, 20}, {45, 0}, {60, 0}}));
    }

    // The rails run parallel and cross at each value change; a value is centred in its segment
    // when it fits there (ABC for 4 samples, 5 for 5), and left out when not (FFF for one).
    void bus_rails_cross_and_labels_fit()
    {
        std::vector<std::uint64_t> samples(10, std::uint64_t(5) << IR_IN);
        std::fill(samples.begin(), samples.begin() + 4, std::uint64_t(0xABC) << IR_IN);
        samples[4] = std::uint64_t(0xFFF) << IR_IN;
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        const PGMDQ_DEBUG_WAVE_ITEM* ir_in = widget.waveform_scene()->wave_items()[3];
        QCOMPARE(ir_in->pos(), QPointF(0, 33 * 4));
        const QList<QPainterPath> rails = ir_in->paths();
        QCOMPARE(rails.size(), 2);
        QCOMPARE(points_of(rails[0]),
                 (QList<QPointF>{{0, 0}, {58.5, 0}, {61.5, 26}, {73.5, 26}, {76.5, 0}, {148.5, 0}}));
        QCOMPARE(points_of(rails[1]),
                 (QList<QPointF>{{0, 26}, {58.5, 26}, {61.5, 0}, {73.5, 0}, {76.5, 26}, {148.5, 26}}));
        const QList<PGMDQ_DEBUG_BUS_LABEL> labels = ir_in->labels();
        QCOMPARE(labels.size(), 2);
        QCOMPARE(labels[0].text, QString("ABC"));
        QCOMPARE(labels[0].position, QPointF((60 - rendered_width("ABC")) / 2 + 0.5, 0));
        QCOMPARE(labels[1].text, QString("5"));
        QCOMPARE(labels[1].position, QPointF(75 + (75 - rendered_width("5")) / 2 + 0.5, 0));
    }

    // At the views' 1:1 scale (whole pixels scrolled) the items paint what the classic path and
    // text items paint.
    void painting_at_one_to_one_is_the_classic_drawing()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(400, 3));
        QGraphicsScene classic;
        draw_classic(classic, *widget.waveform_scene());
        QCOMPARE(widget.waveform_scene()->sceneRect(), QRectF(0, 0, 410 * 15, 30 * 18 + 45));
        const QSize size(900, 585);
        for (double left : {0.0, 1234.0, 4507.0, 6000.0 - 900}) {
            const QRectF source(left, 0, size.width(), size.height());
            QCOMPARE(render(*widget.waveform_scene(), source, size), render(classic, source, size));
        }
    }

    // Zoomed out over a long trace, a pixel column shows an edge (a stroke between the levels)
    // where the classic drawing has one, within a pixel (the strokes round differently).
    void zoomed_out_every_edge_stays_visible()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(32768, 5));
        QGraphicsScene classic;
        draw_classic(classic, *widget.waveform_scene());
        const QSize size(1000, 585);
        for (double samples_shown : {32768.0, 9000.0, 700.0}) {
            const QRectF source(3000, 0, samples_shown * 15, size.height());
            const QImage drawn = render(*widget.waveform_scene(), source, size);
            const QImage expected = render(classic, source, size);
            for (unsigned row = 0; row < 15; ++row) {
                // Between the levels; for a bus above its labels, which the classic drawing
                // squeezes with the zoom.
                const int y = 33 * (row + 1) + (PGMDQ_SFL_DEBUG_SIGNALS[row].width > 1 ? 2 : 10);
                int edges = 0;
                for (int x = 1; x + 1 < size.width(); ++x) {
                    const QString where = QString("row %1, column %2, %3 samples").arg(row).arg(x).arg(samples_shown);
                    edges += lit(expected, x, y);
                    if (lit(expected, x, y))
                        QVERIFY2(lit(drawn, x - 1, y) || lit(drawn, x, y) || lit(drawn, x + 1, y), qPrintable(where));
                    if (lit(drawn, x, y))
                        QVERIFY2(lit(expected, x - 1, y) || lit(expected, x, y) || lit(expected, x + 1, y),
                                 qPrintable(where));
                }
                QVERIFY(row != 0 || edges > 0);
            }
        }
    }

    void internal_errors()
    {
        static const PGMDQ_DEBUG_SIGNAL zero_width[] = {{"tck", 1}, {"bad", 0}, {"", 0}};
        static const PGMDQ_DEBUG_SIGNAL too_wide[] = {{"wide", 33}, {"", 0}};
        static const PGMDQ_DEBUG_SIGNAL unclosed[] = {{"tck", 1}, {"", 4}};
        const PGMDQ_DEBUG_SIGNAL* const table = PGMDQ_SFL_DEBUG_SIGNALS;
        const QString forget("depth == 0 && waveforms == NULL && debug_signals == NULL");
        const QString show("depth > 0 && waveforms != NULL && debug_signals != NULL");
        PGMDQ_SAMPLE_BUFFERS samples(2, 5);
        unsigned char** const none = nullptr;
        const struct {
            unsigned width, depth;
            unsigned char** samples;
            const PGMDQ_DEBUG_SIGNAL* table;
            QString error;
        } cases[] = {
            {0, 1, none, nullptr, forget},
            {0, 0, samples.data(), nullptr, forget},
            {37, 0, samples.data(), table, show},
            {37, 2, none, table, show},
            {37, 2, samples.data(), nullptr, show},
            {37, 2, samples.data(), zero_width, "debug_signals[index].width > 0"},
            {37, 2, samples.data(), too_wide, "debug_signals[index].width > 0 && debug_signals[index].width <= 32"},
            {37, 2, samples.data(), unclosed, "debug_signals[index].width == 0"},
        };
        for (const auto& bad : cases) {
            PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
            QCOMPARE(internal_error_of([&] { widget.draw_waveform(bad.width, bad.depth, bad.samples, bad.table, 0, 15); }),
                     bad.error);
        }
    }
};

QTEST_MAIN(TEST_WAVE_DRAWING)
#include "test_wave_drawing.moc"
