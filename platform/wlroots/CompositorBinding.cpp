#include "CompositorBinding.h"

#include "TriggerCommand.h"

using namespace Qt::StringLiterals;

CompositorBinding::CompositorBinding(const QString &program, bool sway)
    : m_command(triggerCommand(program))
    , m_line(u"bindsym Ctrl+Alt+h exec "_s + m_command)
    , m_sway(sway)
{
}

void CompositorBinding::add(std::function<void(const QString &error)> done)
{
    done(advice());
}

QString CompositorBinding::advice() const
{
    if (m_sway)
        return u"To use Ctrl+Alt+H, add this line to your sway config and reload it:"_s;
    return u"To use Ctrl+Alt+H, bind it in your compositor's configuration to run `%1`; in sway's words:"_s
        .arg(m_command);
}
