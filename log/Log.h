#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <utility>

// The program's event log: one line per event on standard output, flushed at once,
// so a user (or a test) reading a pipe sees each event as it happens.
// Diagnostics of our own go to stderr through logging categories instead.
//
// A line is written from parts, and a part is never a bare QString: it is text written
// into the program (a u"..." literal), a number, a Private value (the user's words) or a
// Public one (a name or an address that is not the user's). A user's string that nobody
// wrapped does not compile where the log is written.
namespace Log {

// How much of the user's own words a line may carry.
enum class Detail {
    Full, // values as they are: a terminal, or TESSARY_LOG=full
    Private, // values that carry the user's content are replaced by their length
};

// Decided once at start-up: TESSARY_LOG=full or =private wins; otherwise Full only when
// `output` is a terminal someone watches. The journal, ~/.xsession-errors, a file or a
// pipe keep what they get, so they get lengths.
Detail chooseDetail(const QStringList &environment, int output);
Detail detailFromProcess();
void setDetail(Detail detail);
Detail detail();

// Text written into the program itself: only a string literal (or a constant array)
// makes one, never a value read at run time.
class Literal
{
public:
    template<std::size_t N>
    consteval Literal(const char16_t (&text)[N])
        : m_text(text, qsizetype(N - 1))
    {
    }
    constexpr QStringView view() const { return m_text; }

private:
    QStringView m_text;
};

// The user's words: selected text, a sample, a fragment, a result, a reply line that
// carries them, a key. Written as "[42 characters]" unless the exact lines were asked for.
class Private
{
public:
    explicit Private(QString value)
        : m_value(std::move(value))
    {
    }

private:
    friend class Part;
    QString m_value;
};

// A value read at run time that is not the user's words: an application's name, an
// address, a setting's name, an error the system or the service gave. Always written.
class Public
{
public:
    explicit Public(QString value)
        : m_value(std::move(value))
    {
    }

private:
    friend class Part;
    QString m_value;
};

// One piece of a line's message.
class Part
{
public:
    template<std::size_t N>
    consteval Part(const char16_t (&text)[N])
        : m_fixed(Literal(text).view())
    {
    }
    Part(Literal text)
        : m_fixed(text.view())
    {
    }
    Part(Private value)
        : m_value(std::move(value.m_value))
        , m_private(true)
    {
    }
    Part(Public value)
        : m_value(std::move(value.m_value))
    {
    }
    // Exactly a bool: a pointer must not become "true".
    template<std::same_as<bool> Boolean>
    Part(Boolean value)
        : m_fixed(value ? QStringView(u"true") : QStringView(u"false"))
    {
    }
    template<std::integral Number>
    requires(
        !std::same_as<Number,
            bool> && !std::same_as<Number, char> && !std::same_as<Number, char8_t> && !std::same_as<Number, char16_t> && !std::same_as<Number, char32_t> && !std::same_as<Number, wchar_t>)
        Part(Number value)
        : m_value(QString::number(value))
    {
    }

    // As the line shows it at the given detail.
    void appendTo(QString &line, Detail detail) const;

private:
    QStringView m_fixed;
    QString m_value;
    bool m_private = false;
};

using Message = std::initializer_list<Part>;

// "<glyph> [<tag>] <message>"
void write(Literal glyph, Literal tag, Message message);
void write(Literal glyph, Literal tag, Part message);

// A line without glyph or tag.
void write(Message line);
void write(Part line);

// Lines gathered to go out in one write: a line per event still, but not a system call
// per line, which would make a reader lag behind a fast stream.
class Lines
{
public:
    void add(Literal glyph, Literal tag, Message message);
    void add(Literal glyph, Literal tag, Part message);
    bool isEmpty() const { return m_text.isEmpty(); }
    // Writes what was gathered, if anything, and starts again.
    void flush();

private:
    QString m_text;
};

} // namespace Log
