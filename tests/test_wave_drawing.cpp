// Drawing a trace: the rows' places and colours, one path per wave or rail, bus labels only where
// they fit, the scenes' sizes, and the internal errors of the drawing calls.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_file_bytes.h"
#include "wave/wave_test_trace.h"

#include <QGraphicsPathItem>
#include <QGraphicsSimpleTextItem>
#include <QGraphicsTextItem>
#include <QPainterPath>
#include <QtTest>

using namespace wave_test;

namespace {

template <class ITEM> QList<ITEM*> items_of(QGraphicsScene* scene)
{
    QList<ITEM*> found;
    for (QGraphicsItem* item : scene->items(Qt::AscendingOrder))
        if (auto* typed = qgraphicsitem_cast<ITEM*>(item))
            found.append(typed);
    return found;
}

QList<QGraphicsPathItem*> paths_at(QGraphicsScene* scene, double y)
{
    QList<QGraphicsPathItem*> found;
    for (QGraphicsPathItem* path : items_of<QGraphicsPathItem>(scene))
        if (path->pos().y() == y)
            found.append(path);
    return found;
}

// A bus label is measured as a text item measures itself and drawn where that item draws its
// text: inside the document margin of the label's box.
const double LABEL_MARGIN = 4;

QList<QGraphicsSimpleTextItem*> labels_at(QGraphicsScene* scene, double row_top)
{
    QList<QGraphicsSimpleTextItem*> found;
    for (QGraphicsSimpleTextItem* label : items_of<QGraphicsSimpleTextItem>(scene))
        if (label->pos().y() == row_top + LABEL_MARGIN)
            found.append(label);
    return found;
}

double rendered_width(const QString& text)
{
    return QGraphicsTextItem(text).boundingRect().width();
}

QList<QPointF> points_of(const QPainterPath& path)
{
    QList<QPointF> points;
    for (int i = 0; i < path.elementCount(); ++i)
        points.append(path.elementAt(i));
    return points;
}

// A table whose bus sits on an even (red) row, then a bit, then a long bus.
const PGMDQ_DEBUG_SIGNAL BUS_FIRST_SIGNALS[] = {{"bus", 8}, {"bit", 1}, {"wide", 12}, {"", 0}};

void draw_bytes(PGMDQ_DEBUG_WAVEFORM_WIDGET& widget, const std::vector<std::vector<unsigned char>>& samples,
                const PGMDQ_DEBUG_SIGNAL* table, unsigned width)
{
    std::vector<unsigned char*> pointers;
    for (const auto& sample : samples)
        pointers.push_back(const_cast<unsigned char*>(sample.data()));
    widget.draw_waveform(width, unsigned(samples.size()), pointers.data(), table, 0, 15);
}

} // namespace

class TEST_WAVE_DRAWING : public QObject {
    Q_OBJECT

private slots:
    void rows_names_and_colours()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(1024));

        const QList<QGraphicsTextItem*> names = items_of<QGraphicsTextItem>(widget.text_scene());
        QCOMPARE(names.size(), 15);
        QStringList texts;
        for (int k = 0; k < names.size(); ++k) {
            texts << names[k]->toPlainText();
            QCOMPARE(names[k]->pos(), QPointF(0, 33 * (k + 1)));
            QCOMPARE(names[k]->defaultTextColor(), k % 2 == 0 ? QColor(Qt::red) : QColor(Qt::white));
        }
        QCOMPARE(texts.mid(12), (QStringList{"data1out_reg", "total_bit_count[11:0]", "tdo"}));
        QCOMPARE(texts[3], QString("ir_in[11:0]"));

        // One path per single-bit row, two rails per bus, each at its row's top in its colour.
        QCOMPARE(items_of<QGraphicsPathItem>(widget.waveform_scene()).size(), 13 + 2 * 2);
        for (unsigned k = 0; k < 15; ++k) {
            const QList<QGraphicsPathItem*> paths = paths_at(widget.waveform_scene(), 33 * (k + 1));
            QCOMPARE(paths.size(), PGMDQ_SFL_DEBUG_SIGNALS[k].width == 1 ? 1 : 2);
            for (QGraphicsPathItem* path : paths)
                QCOMPARE(path->pen().color(), k % 2 == 0 ? QColor(Qt::red) : QColor(Qt::white));
        }
        QCOMPARE(widget.text_scene()->sceneRect().height(), 30.0 * 18 + 3 * 15);
        QCOMPARE(widget.waveform_scene()->sceneRect(), QRectF(0, 0, 15510, 30 * 18 + 3 * 15));
    }

    void square_wave_geometry()
    {
        // tck high, low, low, high: level 0 is high, 20 low; edges are vertical at sample bounds.
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, {1, 0, 0, 1});
        const QList<QGraphicsPathItem*> tck = paths_at(widget.waveform_scene(), 33);
        QCOMPARE(tck.size(), 1);
        const QList<QPointF> expected{{0, 0}, {15, 0}, {15, 20}, {45, 20}, {45, 0}, {60, 0}};
        QCOMPARE(points_of(tck[0]->path()), expected);
    }

    // The rails run parallel, cross at a value change, and each value is centred in its segment.
    void bus_rails_cross_at_a_value_change()
    {
        std::vector<std::uint64_t> samples(10, std::uint64_t(5) << IR_IN);
        std::fill(samples.begin(), samples.begin() + 4, std::uint64_t(0xABC) << IR_IN);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        const double top = 33 * 4;
        const QList<QGraphicsPathItem*> rails = paths_at(widget.waveform_scene(), top);
        QCOMPARE(rails.size(), 2);
        QCOMPARE(points_of(rails[0]->path()), (QList<QPointF>{{0, 0}, {58.5, 0}, {61.5, 26}, {148.5, 26}}));
        QCOMPARE(points_of(rails[1]->path()), (QList<QPointF>{{0, 26}, {58.5, 26}, {61.5, 0}, {148.5, 0}}));

        const QList<QGraphicsSimpleTextItem*> labels = labels_at(widget.waveform_scene(), top);
        QCOMPARE(labels.size(), 2);
        QCOMPARE(labels[0]->text(), QString("ABC"));
        QCOMPARE(labels[0]->pos().x(), (60 - rendered_width("ABC")) / 2 + 0.5 + LABEL_MARGIN);
        QCOMPARE(labels[1]->text(), QString("5"));
        QCOMPARE(labels[1]->pos().x(), 60 + (90 - rendered_width("5")) / 2 + 0.5 + LABEL_MARGIN);
    }

    void label_only_where_it_fits()
    {
        // Row 0 is an 8-bit bus on a red row: one-sample values, then a long value.
        std::vector<std::vector<unsigned char>> samples{{0x7, 0, 0}, {0xAB, 0, 0}, {0x3, 0, 0}};
        for (int i = 0; i < 6; ++i)
            samples.push_back({0xFF, 0, 0});
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw_bytes(widget, samples, BUS_FIRST_SIGNALS, 21);

        QStringList expected;
        for (const char* one_sample : {"7", "AB", "3"})
            if (15 > rendered_width(one_sample))
                expected << one_sample;
        expected << "FF";
        QStringList shown;
        for (QGraphicsSimpleTextItem* label : labels_at(widget.waveform_scene(), 33)) {
            shown << label->text();
            QCOMPARE(label->brush().color(), QColor(Qt::white)); // white even on the red row
        }
        QCOMPARE(shown, expected);
        QVERIFY(!shown.contains("AB"));
        QCOMPARE(paths_at(widget.waveform_scene(), 33)[0]->pen().color(), QColor(Qt::red));
    }

    void forgetting_keeps_the_picture()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(32));
        const int items = widget.waveform_scene()->items().size();
        widget.draw_waveform(0, 0, nullptr, nullptr, 0, 0);
        QCOMPARE(widget.waveform_scene()->items().size(), items);
        QCOMPARE(widget.text_scene()->items().size(), 15);
        QVERIFY(widget.sample(0) == nullptr);
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
