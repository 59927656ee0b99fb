#pragma once

#include "Platform.h"

#include <QByteArray>
#include <QMap>

// An in-memory clipboard holding any formats, with the same change counting and
// snapshot rules as the real one.
class FakePasteboard : public Pasteboard
{
public:
    using Formats = QMap<QString, QByteArray>;

    // What another application (or the user) puts there.
    void setContents(const Formats &formats);
    Formats contents() const { return m_formats; }

    int changeCount() const override { return m_changeCount; }
    void string(std::function<void(std::optional<QString>)> done) const override { done(text()); }
    void clear() override;
    void setString(const QString &text) override;
    void snapshot(std::function<void(Snapshot)> done) const override { done(contentsNow()); }
    void restore(const Snapshot &snapshot) override;

private:
    std::optional<QString> text() const;
    Snapshot contentsNow() const;

    Formats m_formats;
    int m_changeCount = 0;
};
