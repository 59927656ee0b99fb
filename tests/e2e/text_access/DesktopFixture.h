#pragma once

#include "../support/DesktopTools.h"

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// Programs of the test desktop: editors and terminals started for one case, and the
// command-line tools (xdotool, xclip) that play the user.
namespace Desktop {

// Presses keys as xdotool names them ("ctrl+Home", "shift+Right").
void keys(const QStringList &names);

// Puts contents on the clipboard the way another application does: owned by xclip.
void setClipboard(const QByteArray &data, const QString &type = QStringLiteral("UTF8_STRING"));
QByteArray clipboard(const QString &type = QStringLiteral("UTF8_STRING"));

// The window the window manager reports active (0 when none), and its process.
quint32 activeWindow();
qint64 windowPid(quint32 window);

// A program with a window; stopped when it goes out of scope.
class Window
{
public:
    ~Window();
    qint64 pid() const { return m_process ? m_process->processId() : 0; }
    // Waits until the program's window is the active one; false on timeout.
    bool waitUntilActive();
    void stop();

protected:
    void start(const QString &program, const QStringList &arguments, bool accessible);

private:
    QTemporaryDir m_home;
    std::unique_ptr<QProcess> m_process;
};

// mousepad editing a file of its own; accessible = false starts it off the accessibility bus.
class Editor : public Window
{
public:
    Editor(const QString &content, bool accessible);
    QString filePath() const { return m_dir.filePath(QStringLiteral("text.txt")); }
    // Saves (Ctrl+S) and returns the file's text once it differs from before.
    QString savedText();

private:
    QTemporaryDir m_dir;
    QByteArray m_lastSaved;
};

// A stock xterm (no key bindings of ours) that prints a line and then runs a job that
// keeps it busy: a Ctrl+C typed into it would end the job.
class Terminal : public Window
{
public:
    explicit Terminal(const QString &firstLine);
    // Once the job runs, the first line has been printed.
    bool waitUntilReady();
    bool jobRuns() const;
    // Double-clicks the first word, as the user selects it; xterm then holds it as PRIMARY.
    void selectFirstWord();

private:
    QTemporaryDir m_dir;
    QString m_firstWord;
    qint64 m_job = 0;
};

} // namespace Desktop
