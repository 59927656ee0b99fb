// Guards against the user's words reaching a place that keeps them: the journal,
// ~/.xsession-errors, a file or a pipe get lengths; a terminal someone watches, or an
// explicit TESSARY_LOG=full, gets the exact lines. Each row hands the choice a real
// descriptor of that kind.
#include "Log.h"

#include <QTemporaryFile>
#include <QTest>

#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
enum class Output { Terminal, Pipe, File, Journal, Null };

// Descriptors of one kind, closed when the row ends.
class Descriptors
{
public:
    ~Descriptors()
    {
        for (int fd : m_open)
            ::close(fd);
    }
    // The descriptor a program would write to, and JOURNAL_STREAM's value when it is the journal.
    int open(Output kind, QString *journalStream)
    {
        int pair[2] = { -1, -1 };
        switch (kind) {
        case Output::Terminal:
            if (::openpty(&pair[0], &pair[1], nullptr, nullptr, nullptr) != 0)
                return -1;
            break;
        case Output::Pipe:
            if (::pipe(pair) != 0)
                return -1;
            std::swap(pair[0], pair[1]);
            break;
        case Output::File:
            if (!m_file.open())
                return -1;
            pair[1] = ::dup(m_file.handle());
            break;
        case Output::Journal: // the journal hands its clients a stream socket and names it
            if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
                return -1;
            break;
        case Output::Null:
            pair[1] = ::open("/dev/null", O_WRONLY);
            break;
        }
        for (int fd : pair) {
            if (fd >= 0)
                m_open.append(fd);
        }
        struct stat status = {};
        if (kind == Output::Journal && ::fstat(pair[1], &status) == 0)
            *journalStream = u"%1:%2"_s.arg(quint64(status.st_dev)).arg(quint64(status.st_ino));
        return pair[1];
    }

private:
    QList<int> m_open;
    QTemporaryFile m_file;
};
} // namespace

Q_DECLARE_METATYPE(Output)

class TestLogDetail : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choice_data()
    {
        QTest::addColumn<Output>("output");
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<bool>("full");

        const QStringList none { u"HOME=/h"_s };
        QTest::newRow("terminal") << Output::Terminal << none << true;
        QTest::newRow("pipe") << Output::Pipe << none << false;
        QTest::newRow("file, as ~/.xsession-errors") << Output::File << none << false;
        QTest::newRow("journal") << Output::Journal << none << false;
        QTest::newRow("a device that is no terminal") << Output::Null << none << false;
        QTest::newRow("TESSARY_LOG=full on a pipe")
            << Output::Pipe << QStringList { u"TESSARY_LOG=full"_s } << true;
        QTest::newRow("TESSARY_LOG=full in the journal")
            << Output::Journal << QStringList { u"TESSARY_LOG=full"_s } << true;
        QTest::newRow("TESSARY_LOG=private on a terminal")
            << Output::Terminal << QStringList { u"TESSARY_LOG=private"_s } << false;
        QTest::newRow("another value leaves the choice to the output")
            << Output::Pipe << QStringList { u"TESSARY_LOG=yes"_s } << false;
        QTest::newRow("a longer name is not the variable")
            << Output::Pipe << QStringList { u"TESSARY_LOGX=full"_s, u"XTESSARY_LOG=full"_s } << false;
    }

    void choice()
    {
        QFETCH(Output, output);
        QFETCH(QStringList, environment);

        Descriptors descriptors;
        QString journalStream;
        const int fd = descriptors.open(output, &journalStream);
        QVERIFY2(fd >= 0, strerror(errno));
        if (!journalStream.isEmpty())
            environment.append(u"JOURNAL_STREAM="_s + journalStream);
        QTEST(Log::chooseDetail(environment, fd) == Log::Detail::Full, "full");
    }
};

QTEST_GUILESS_MAIN(TestLogDetail)
#include "TestLogDetail.moc"
