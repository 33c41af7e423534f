// The plug-in's message types and host messages, as the user sees them.
#include "pgmdq_msgs.h"

#include <QImage>
#include <QtTest>

namespace {

struct RECORDING_SINK : MSG_SINK {
    QStringList rows;
    void receive(MSG_KIND kind, int id, const std::string& text) override
    {
        rows << QString("%1|%2|%3").arg(int(kind)).arg(id).arg(QString::fromStdString(text));
    }
};

QImage image_of(const QIcon& icon)
{
    return icon.pixmap(16, 16).toImage().convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class TEST_MESSAGES : public QObject {
    Q_OBJECT
private slots:
    void line_types_have_their_prefix_and_icon_data();
    void line_types_have_their_prefix_and_icon();
    void messages_reach_the_host_as_posted();
};

// The POF error shares the error icon; each icon is a 16-pixel image of the plug-in's resources.
void TEST_MESSAGES::line_types_have_their_prefix_and_icon_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("icon");
    QTest::newRow("info") << 0 << "Info: " << ":icons/pgmdq_msg_info_icon.png";
    QTest::newRow("warning") << 1 << "Warning: " << ":icons/pgmdq_msg_warning_icon.png";
    QTest::newRow("error") << 2 << "Error: " << ":icons/pgmdq_msg_error_icon.png";
    QTest::newRow("pof error") << 3 << "POF Error: " << ":icons/pgmdq_msg_error_icon.png";
}

void TEST_MESSAGES::line_types_have_their_prefix_and_icon()
{
    QFETCH(int, type);
    QFETCH(QString, prefix);
    QFETCH(QString, icon);
    QCOMPARE(PGMDQ_MSG_TYPE_STRING[type], prefix);
    const QImage image = QImage(icon).convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(image.size(), QSize(16, 16));
    QCOMPARE(image_of(PGMDQ_MSG_TYPE_ICON[type]), image);
    QVERIFY(type == 0 || image_of(PGMDQ_MSG_TYPE_ICON[0]) != image);
}

// Host messages fill their templates; a suppressed information message is hidden while errors
// still appear; debug messages appear down to the debug level, with the plug-in's prefix.
void TEST_MESSAGES::messages_reach_the_host_as_posted()
{
    RECORDING_SINK sink;
    msg_set_sink(&sink);
    const auto post_all = [] {
        msg_post(MSG_PGMDQ::E::FILE_IO_ERROR("/tmp/trace.wvf"));
        msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG("USEDW count: 12"));
        msg_post(MSG_PGMDQ::E::PGMDQ_COMMON_ERROR_MSG("Fail to read memory"));
    };
    post_all();
    MSG_INDEX::get_default_index()->suppress(14600);
    post_all();
    MSG_INDEX::get_default_index()->unsuppress_all();
    MSG_PGMDQ::DEBUG_MSG("at level %d", 2);
    msg_set_debug_level(2);
    MSG_PGMDQ::DEBUG_MSG("at level %d", 2);
    MSG_PGMDQ::DEBUG_MSG(3, "too deep");
    msg_vdebug_impl(1, "%s", "shallow");
    msg_set_debug_level(0);
    msg_set_sink(nullptr);
    const QString io = "2|208400|Can't save or open file /tmp/trace.wvf", error = "2|14601|Fail to read memory";
    QCOMPARE(sink.rows, QStringList({io, "0|14600|USEDW count: 12", error, io, error, "3|0|PGMDQ: at level 2",
                                     "3|0|PGMDQ: shallow"}));
}

QTEST_MAIN(TEST_MESSAGES)
#include "test_messages.moc"
