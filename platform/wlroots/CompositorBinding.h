#pragma once

#include "Platform.h"

// Ctrl+Alt+H on compositors configured by a file of their own (sway and its kin): Tessary
// cannot change that file safely, and cannot see the bindings in it, so it shows the
// line to add.
class CompositorBinding : public DesktopShortcut
{
public:
    // program: the running binary; sway: whether the compositor is sway itself, whose
    // line can be given exactly.
    CompositorBinding(const QString &program, bool sway);

    bool isBound() const override { return false; }
    bool canAdd() const override { return false; }
    void add(std::function<void(const QString &error)> done) override;
    QString advice() const override;
    QString configLine() const override { return m_line; }

private:
    QString m_command;
    QString m_line;
    bool m_sway;
};
