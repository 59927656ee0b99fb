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
    std::optional<QString> string() const override;
    void clear() override;
    void setString(const QString &text) override;
    Snapshot snapshot() const override;
    void restore(const Snapshot &snapshot) override;

private:
    Formats m_formats;
    int m_changeCount = 0;
};
