// Drawing a trace: the names' places and colours, the paths' geometry, the internal errors of the
// drawing calls; and what the items paint: pixel for pixel the classic drawing (path items built
// sample by sample, text items for the labels, which shows only the labels that fit) at 1:1, and
// every edge still visible zoomed out.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_file_bytes.h"
#include "wave/wave_test_trace.h"

#include <QGraphicsPathItem>
#include <QGraphicsTextItem>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
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

QPen thin_pen(const QColor& colour)
{
    QPen pen(colour, 0);
    pen.setCosmetic(true);
    return pen;
}

// The classic drawing of the debug IP's trace, literally: per row a path built sample by sample
// (a line per sample, a vertical line at each level change; two rails crossing in an X for a
// bus) as QGraphicsPathItems at the row's top, and each bus value that fits its segment as a
// white QGraphicsTextItem centred in it.
void draw_part_reference(QGraphicsScene& scene, const std::vector<std::uint64_t>& samples, double step)
{
    scene.setBackgroundBrush(Qt::black);
    double offset = 0;
    unsigned first_bit = 0;
    for (unsigned row = 0; PGMDQ_SFL_DEBUG_SIGNALS[row].width; first_bit += PGMDQ_SFL_DEBUG_SIGNALS[row++].width) {
        const unsigned width = PGMDQ_SFL_DEBUG_SIGNALS[row].width;
        std::vector<unsigned> values;
        for (std::uint64_t sample : samples)
            values.push_back(unsigned(sample >> first_bit & ((1u << width) - 1)));
        const QColor colour = row % 2 == 0 ? Qt::red : Qt::white;
        offset += 3;
        const double top = 30 * (row + 1) + offset;
        QList<QPainterPath> paths;
        if (width == 1) {
            double y = values[0] ? 0 : 20;
            double x = 0;
            QPainterPath path(QPointF(x, y));
            x += step;
            path.lineTo(x, y);
            for (std::size_t i = 1; i < values.size(); ++i) {
                if (values[i] != values[i - 1]) {
                    y = std::abs(y - 20);
                    path.lineTo(x, y);
                }
                x += step;
                path.lineTo(x, y);
            }
            paths << path;
        } else {
            double upper = 0;
            double lower = 26;
            QPainterPath rail1(QPointF(0, upper));
            QPainterPath rail2(QPointF(0, lower));
            std::size_t segment = 0;
            for (std::size_t i = 1; i <= values.size(); ++i) {
                const bool end = i == values.size();
                if (!end && values[i] == values[segment])
                    continue;
                const double boundary = i * step;
                rail1.lineTo(boundary - 1.5, upper);
                rail2.lineTo(boundary - 1.5, lower);
                auto* label = new QGraphicsTextItem(QString::number(values[segment], 16).toUpper());
                const double label_width = label->boundingRect().width();
                const double length = (i - segment) * step;
                if (length > label_width) {
                    label->setDefaultTextColor(Qt::white);
                    label->setPos(segment * step + (length - label_width) / 2 + 0.5, top);
                    scene.addItem(label);
                } else {
                    delete label;
                }
                if (end)
                    break;
                upper = std::abs(upper - 26);
                lower = std::abs(lower - 26);
                rail1.lineTo(boundary + 1.5, upper);
                rail2.lineTo(boundary + 1.5, lower);
                segment = i;
            }
            paths << rail1 << rail2;
        }
        for (const QPainterPath& path : paths) {
            QGraphicsPathItem* item = scene.addPath(path, thin_pen(colour));
            item->setPos(0, top);
        }
    }
    scene.setSceneRect(0, 0, (samples.size() + 10) * step, 30 * 18 + offset);
}

QImage render(QGraphicsScene& scene, const QRectF& source, const QSize& size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    scene.render(&painter, QRectF(QPointF(0, 0), size), source, Qt::IgnoreAspectRatio);
    return image;
}

// Pixels that differ between two pictures of one size.
int differing_pixels(const QImage& a, const QImage& b)
{
    int count = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if ((a.pixel(x, y) & 0xFFFFFF) != (b.pixel(x, y) & 0xFFFFFF)) {
                ++count;
                if (qEnvironmentVariableIsSet("WAVE_DEBUG"))
                    qInfo("pixel %d,%d: %06x vs %06x", x, y, a.pixel(x, y) & 0xFFFFFF, b.pixel(x, y) & 0xFFFFFF);
            }
    return count;
}

} // namespace

class TEST_WAVE_DRAWING : public QObject {
    Q_OBJECT

private slots:
    void rows_names_and_colours()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(1024));

        QList<QGraphicsTextItem*> names;
        for (QGraphicsItem* item : widget.text_scene()->items(Qt::AscendingOrder))
            if (auto* name = qgraphicsitem_cast<QGraphicsTextItem*>(item))
                names << name;
        QCOMPARE(names.size(), 15);
        QStringList texts;
        for (int k = 0; k < names.size(); ++k) {
            texts << names[k]->toPlainText();
            QCOMPARE(names[k]->pos(), QPointF(0, 33 * (k + 1)));
            QCOMPARE(names[k]->defaultTextColor(), k % 2 == 0 ? QColor(Qt::red) : QColor(Qt::white));
        }
        QCOMPARE(texts.mid(12), (QStringList{"data1out_reg", "total_bit_count[11:0]", "tdo"}));
        QCOMPARE(texts[3], QString("ir_in[11:0]"));

        QCOMPARE(widget.text_scene()->sceneRect().height(), 30.0 * 18 + 3 * 15);
    }

    void square_wave_geometry()
    {
        // tck high, low, low, high: level 0 is high, 20 low; edges are vertical at sample bounds.
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, {1, 0, 0, 1});
        const PGMDQ_DEBUG_WAVE_ITEM* tck = widget.waveform_scene()->wave_items()[0];
        QCOMPARE(tck->pos(), QPointF(0, 33));
        const QList<QPointF> expected{{0, 0}, {15, 0}, {15, 20}, {45, 20}, {45, 0}, {60, 0}};
        QCOMPARE(points_of(tck->paths()[0]), expected);
    }

    // The rails run parallel, cross at a value change, and each value is centred in its segment.
    void bus_rails_cross_at_a_value_change()
    {
        std::vector<std::uint64_t> samples(10, std::uint64_t(5) << IR_IN);
        std::fill(samples.begin(), samples.begin() + 4, std::uint64_t(0xABC) << IR_IN);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        const PGMDQ_DEBUG_WAVE_ITEM* ir_in = widget.waveform_scene()->wave_items()[3];
        QCOMPARE(ir_in->pos(), QPointF(0, 33 * 4));
        const QList<QPainterPath> rails = ir_in->paths();
        QCOMPARE(rails.size(), 2);
        QCOMPARE(points_of(rails[0]), (QList<QPointF>{{0, 0}, {58.5, 0}, {61.5, 26}, {148.5, 26}}));
        QCOMPARE(points_of(rails[1]), (QList<QPointF>{{0, 26}, {58.5, 26}, {61.5, 0}, {148.5, 0}}));

        const QList<PGMDQ_DEBUG_BUS_LABEL> labels = ir_in->labels();
        QCOMPARE(labels.size(), 2);
        QCOMPARE(labels[0].text, QString("ABC"));
        QCOMPARE(labels[0].position, QPointF((60 - rendered_width("ABC")) / 2 + 0.5, 0));
        QCOMPARE(labels[1].text, QString("5"));
        QCOMPARE(labels[1].position, QPointF(60 + (90 - rendered_width("5")) / 2 + 0.5, 0));
    }

    // At the views' 1:1 scale the items paint what the classic path and text items paint.
    void painting_is_the_parts_drawing_at_one_to_one()
    {
        const std::vector<std::uint64_t> samples = structured_trace(400, 3);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        QGraphicsScene reference;
        draw_part_reference(reference, samples, 15);
        QCOMPARE(widget.waveform_scene()->sceneRect(), reference.sceneRect());
        const QSize size(900, 585);
        for (double left : {0.0, 1234.0, 4507.5, 6000.0 - 900}) {
            const QRectF source(left, 0, size.width(), size.height());
            const QImage drawn = render(*widget.waveform_scene(), source, size);
            const QImage expected = render(reference, source, size);
            if (qEnvironmentVariableIsSet("WAVE_DEBUG")) {
                drawn.save(QString("/tmp/probe/drawn_%1.png").arg(left));
                expected.save(QString("/tmp/probe/expected_%1.png").arg(left));
            }
            QCOMPARE(differing_pixels(drawn, expected), 0);
        }
    }

    // Zoomed out to the whole of a long trace, a pixel column shows an edge (a stroke between the
    // levels) where the classic path has one, to the pixel.
    void zoomed_out_every_edge_stays_visible()
    {
        const std::vector<std::uint64_t> samples = structured_trace(131072, 5);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        QGraphicsScene reference;
        draw_part_reference(reference, samples, 15);
        const QSize size(1000, 585);
        for (double samples_shown : {131072.0, 9000.0, 700.0}) {
            const QRectF source(3000, 0, samples_shown * 15, size.height());
            const QImage drawn = render(*widget.waveform_scene(), source, size);
            const QImage expected = render(reference, source, size);
            for (unsigned row = 0; row < 15; ++row) {
                const bool bus = PGMDQ_SFL_DEBUG_SIGNALS[row].width > 1;
                // Between the levels; for a bus above its labels (which the classic scene squeezes
                // with the zoom, and the items draw at their size where they fit).
                const int middle = 33 * (row + 1) + (bus ? 2 : 10);
                int edges = 0;
                for (int x = 1; x + 1 < size.width(); ++x) {
                    const auto stroked = [&](const QImage& image, int column) {
                        return (image.pixel(column, middle) & 0xFFFFFF) != 0;
                    };
                    // Within one pixel: the classic thin path and the strokes round differently.
                    if (stroked(expected, x)) {
                        ++edges;
                        QVERIFY2(stroked(drawn, x - 1) || stroked(drawn, x) || stroked(drawn, x + 1),
                                 qPrintable(QString("row %1, column %2, %3 samples").arg(row).arg(x).arg(samples_shown)));
                    }
                    if (stroked(drawn, x))
                        QVERIFY2(stroked(expected, x - 1) || stroked(expected, x) || stroked(expected, x + 1),
                                 qPrintable(QString("row %1, column %2, %3 samples").arg(row).arg(x).arg(samples_shown)));
                }
                if (row == 0)
                    QVERIFY(edges > 0);
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
        const struct {
            unsigned width, depth;
            bool with_samples;
            const PGMDQ_DEBUG_SIGNAL* table;
            QString error;
        } cases[] = {
            {0, 1, false, nullptr, forget},
            {0, 0, true, nullptr, forget},
            {37, 0, true, table, show},
            {37, 2, false, table, show},
            {37, 2, true, nullptr, show},
            {37, 2, true, zero_width, "debug_signals[index].width > 0"},
            {37, 2, true, too_wide, "debug_signals[index].width > 0 && debug_signals[index].width <= 32"},
            {37, 2, true, unclosed, "debug_signals[index].width == 0"},
        };
        PGMDQ_SAMPLE_BUFFERS samples(2, 5);
        for (const auto& bad : cases) {
            PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
            QCOMPARE(internal_error_of([&] {
                         widget.draw_waveform(bad.width, bad.depth, bad.with_samples ? samples.data() : nullptr,
                                              bad.table, 0, 15);
                     }),
                     bad.error);
        }
    }
};

QTEST_MAIN(TEST_WAVE_DRAWING)
#include "test_wave_drawing.moc"
