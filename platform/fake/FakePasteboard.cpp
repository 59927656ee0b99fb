#include "FakePasteboard.h"

#include <QMimeData>

using namespace Qt::StringLiterals;

void FakePasteboard::setContents(const Formats &formats)
{
    m_formats = formats;
    ++m_changeCount;
}

std::optional<QString> FakePasteboard::text() const
{
    const auto text = m_formats.constFind(u"text/plain"_s);
    if (text == m_formats.cend())
        return std::nullopt;
    return QString::fromUtf8(*text);
}

void FakePasteboard::clear()
{
    setContents({});
}

void FakePasteboard::setString(const QString &text)
{
    setContents({ { u"text/plain"_s, text.toUtf8() }, { u"x-kde-passwordManagerHint"_s, "secret" } });
}

Pasteboard::Snapshot FakePasteboard::contentsNow() const
{
    if (m_formats.isEmpty())
        return nullptr;
    auto data = std::make_shared<QMimeData>();
    for (auto it = m_formats.cbegin(); it != m_formats.cend(); ++it)
        data->setData(it.key(), it.value());
    return data;
}

void FakePasteboard::restore(const Snapshot &snapshot)
{
    Formats formats;
    if (snapshot) {
        for (const QString &format : snapshot->formats())
            formats.insert(format, snapshot->data(format));
    }
    setContents(formats);
}
