#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

// The program as the end-to-end tier builds it, with a settings folder of its own
// (XDG_CONFIG_HOME) and its standard output gathered in log; ended when it goes.
// That output is a pipe, so the user's words in it are lengths: a test that looks for
// them passes TESSARY_LOG=full. When a test fails, both outputs are printed whole: a
// failure message shows only the first kilobyte.
class TessaryProcess : public QProcess
{
public:
    // settings: its Tessary.conf to begin with (none when empty); environment: NAME=value.
    explicit TessaryProcess(const QByteArray &settings = {}, const QStringList &environment = {})
    {
        if (!settings.isEmpty())
            writeFile(QStringLiteral("Tessary/Tessary.conf"), settings);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        for (const QString &variable : environment)
            env.insert(variable.section(u'=', 0, 0), variable.section(u'=', 1));
        setProcessEnvironment(env);
        connect(this, &QProcess::readyReadStandardOutput, this,
            [this] { log += QString::fromUtf8(readAllStandardOutput()); });
    }
    ~TessaryProcess() override
    {
        terminate();
        if (!waitForFinished(3000))
            kill();
        if (QTest::currentTestFailed())
            qInfo().noquote() << "tessary's output:\n"
                              << log << "\ntessary's errors:\n"
                              << QString::fromUtf8(readAllStandardError());
    }

    static QString program()
    {
        return qEnvironmentVariable("TESSARY_BINARY_DIR") + QStringLiteral("/tests/tessary-e2e");
    }

    bool start(const QStringList &arguments = {})
    {
        QProcess::start(program(), arguments);
        return waitForStarted();
    }

    // A file below the settings folder, readable by its owner only, as the program keeps them.
    void writeFile(const QString &relative, const QByteArray &contents)
    {
        QDir().mkpath(QFileInfo(path(relative)).absolutePath());
        QFile file(path(relative));
        QVERIFY(file.open(QIODevice::WriteOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QVERIFY(file.write(contents) == contents.size());
    }
    QString path(const QString &relative) const { return config.filePath(relative); }

    QTemporaryDir config;
    QString log;
};
