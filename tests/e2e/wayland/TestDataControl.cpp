// Guards the clipboard while Tessary is in the background on Wayland: another program's
// formats lost or altered by a snapshot or a restore, a holder that never answers hanging
// the read, our rewrite left unmarked for clipboard managers or mistaken for a later copy.
#include "DesktopTools.h"
#include "wayland/DataControlPasteboard.h"

#include <QApplication>
#include <QClipboard>
#include <QMimeData>
#include <QProcess>
#include <QTest>
#include <QWidget>

#include <csignal>

using namespace Qt::StringLiterals;
using Desktop::answerOf;
using Desktop::run;
using Formats = QMap<QString, QByteArray>;

namespace {
const QByteArray image("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
const QByteArray big = QByteArray("Rewrite me. ").repeated(10000); // more than a pipe holds
const Formats held { { u"text/plain"_s, big }, { u"image/png"_s, image },
    { u"application/x-tessary-test"_s, QByteArray("\0\1 own\n", 7) } };
const QString words = u"Plain words, ünïcode"_s;

// A window with the keyboard focus puts several formats on the clipboard through Qt.
bool hold(QWidget &window)
{
    window.show();
    if (!QTest::qWaitForWindowActive(&window))
        return false;
    auto *data = new QMimeData;
    for (const auto &[type, bytes] : held.asKeyValueRange())
        data->setData(type, bytes);
    QGuiApplication::clipboard()->setMimeData(data);
    return true;
}
} // namespace

class TestDataControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void snapshotRestoreAndGiveWay_data()
    {
        QTest::addColumn<QStringList>("holder"); // none: our own rewrite; "window": one of ours
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<Formats>("formats"); // none: the holder is stopped and never answers
        const QStringList copy { u"wl-copy"_s, u"--foreground"_s };
        QTest::newRow("text, image and its own type from another program's window")
            << QStringList { QCoreApplication::applicationFilePath(), u"--hold"_s } << QByteArray() << held;
        QTest::newRow("an image alone") << copy + QStringList { u"-t"_s, u"image/png"_s } << image
                                        << Formats { { u"image/png"_s, image } };
        QTest::newRow("text from the command line") << copy + QStringList { words } << QByteArray()
                                                    << Formats { { u"UTF8_STRING"_s, words.toUtf8() } };
        QTest::newRow("a holder that never answers")
            << copy + QStringList { words } << QByteArray() << Formats();
        QTest::newRow("our rewrite, marked for clipboard managers")
            << QStringList() << QByteArray()
            << Formats { { u"x-kde-passwordManagerHint"_s, "secret" }, { u"text/plain"_s, words.toUtf8() } };
        QTest::newRow("our own window's copy, served by this thread")
            << QStringList { u"window"_s } << QByteArray() << held;
    }

    void snapshotRestoreAndGiveWay()
    {
        QFETCH(QStringList, holder);
        QFETCH(QByteArray, input);
        QFETCH(Formats, formats);
        std::unique_ptr<DataControlPasteboard> board
            = DataControlPasteboard::open(QGuiApplication::clipboard());
        QVERIFY(board);
        QProcess program;
        QWidget window;
        if (holder.isEmpty()) {
            board->setString(words);
        } else if (holder.first() == u"window") {
            QVERIFY(hold(window));
        } else {
            program.start(holder.first(), holder.mid(1));
            program.write(input);
            program.closeWriteChannel();
        }
        QTRY_VERIFY_WITH_TIMEOUT(board->changeCount() > 0, 10000);
        if (formats.isEmpty())
            ::kill(pid_t(program.processId()), SIGSTOP);
        const auto saved = answerOf<Pasteboard::Snapshot>([&](auto done) { board->snapshot(done); });
        QVERIFY(saved && bool(*saved) == !formats.isEmpty());
        for (const auto &[type, bytes] : formats.asKeyValueRange())
            QCOMPARE((*saved)->data(type), bytes);
        program.kill(); // SIGKILL ends a stopped holder too
        program.waitForFinished();
        if (formats.isEmpty())
            return;
        // The holder is gone: every format comes back from us, byte for byte (served from
        // this event loop while wl-paste reads).
        board->restore(*saved);
        QCOMPARE(
            QString::fromUtf8(run(u"wl-paste"_s, { u"--list-types"_s })).split(u'\n', Qt::SkipEmptyParts),
            (*saved)->formats());
        for (const auto &type : (*saved)->formats())
            QCOMPARE(run(u"wl-paste"_s, { u"--no-newline"_s, u"-t"_s, type }), (*saved)->data(type));
        // Until another program copies: then theirs is read, not ours.
        const int before = board->changeCount();
        program.start(u"wl-copy"_s, { u"--foreground"_s, u"theirs"_s });
        QTRY_VERIFY_WITH_TIMEOUT(board->changeCount() > before, 10000);
        QCOMPARE(answerOf<std::optional<QString>>([&](auto done) { board->string(done); }),
            std::make_optional(std::optional(u"theirs"_s)));
        program.kill();
        program.waitForFinished();
    }
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    TestDataControl test;
    if (!app.arguments().contains(u"--hold"_s))
        return QTest::qExec(&test, argc, argv);
    QWidget window; // another program's, holding the clipboard until it is killed
    return hold(window) ? app.exec() : 1;
}

#include "TestDataControl.moc"
