#pragma once

#include <QByteArray>
#include <QFile>
#include <QStringList>
#include <QTemporaryFile>
#include <QTest>

#include <cstdio>
#include <unistd.h>

// Sends everything written to standard output (fd 1) into a temporary file while it
// lives, so a test can read the program's log lines back without a hook in the logger.
// Qt Test reports failures on stdout as well: when a test fails while capturing, what
// was captured is passed on when the capture ends, so the failure is not swallowed.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        if (!m_file.open())
            qFatal("cannot create a file for standard output");
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        ::dup2(m_file.handle(), STDOUT_FILENO);
    }

    ~StdoutCapture() { restore(); }

    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // The lines written so far.
    QStringList lines()
    {
        std::fflush(stdout);
        QFile file(m_file.fileName());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        return lines;
    }

    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
        m_saved = -1;
        if (QTest::currentTestFailed()) {
            QFile file(m_file.fileName());
            if (file.open(QIODevice::ReadOnly)) {
                const QByteArray captured = file.readAll();
                std::fwrite(captured.constData(), 1, size_t(captured.size()), stdout);
                std::fflush(stdout);
            }
        }
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};
