#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QStringList>

#include <memory>
#include <optional>

// A small accessibility-bus client, playing the user's screen reader: presses Tessary's
// buttons by name, and selects and reads an editor's text.
class AtspiClient
{
public:
    bool connect()
    {
        const QDBusMessage reply = QDBusConnection::sessionBus().call(
            QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return false;
        m_bus = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(
            reply.arguments().value(0).toString(), QStringLiteral("tessary-test-a11y")));
        return m_bus->isConnected();
    }

    // true when a button of that name was found enabled and pressed.
    bool press(const QString &name)
    {
        const auto apps = children(
            { QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/accessible/root") });
        for (const Node &app : apps) {
            if (!this->name(app).contains(QStringLiteral("essary"), Qt::CaseInsensitive))
                continue;
            if (auto button = find(app, name, 0)) {
                const QDBusMessage reply
                    = m_bus->call(QDBusMessage::createMethodCall(button->service, button->path,
                                      QStringLiteral("org.a11y.atspi.Action"), QStringLiteral("DoAction"))
                        << pressIndex(*button));
                return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
            }
        }
        return false;
    }

    // Selects [start, end) of the first editable text of the application called appName.
    bool select(const QString &appName, int start, int end)
    {
        const auto text = editableText(appName);
        if (!text)
            return false;
        const QDBusMessage reply
            = m_bus->call(QDBusMessage::createMethodCall(text->service, text->path,
                              QStringLiteral("org.a11y.atspi.Text"), QStringLiteral("AddSelection"))
                << start << end);
        return reply.arguments().value(0).toBool();
    }

    QString text(const QString &appName)
    {
        const auto text = editableText(appName);
        if (!text)
            return {};
        const QDBusMessage reply
            = m_bus->call(QDBusMessage::createMethodCall(text->service, text->path,
                              QStringLiteral("org.a11y.atspi.Text"), QStringLiteral("GetText"))
                << 0 << -1);
        return reply.arguments().value(0).toString();
    }

private:
    struct Node
    {
        QString service;
        QString path;
    };

    QList<Node> children(const Node &node)
    {
        const QDBusMessage reply = m_bus->call(QDBusMessage::createMethodCall(node.service, node.path,
            QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("GetChildren")));
        QList<Node> result;
        if (reply.type() != QDBusMessage::ReplyMessage)
            return result;
        const QDBusArgument argument = reply.arguments().value(0).value<QDBusArgument>();
        argument.beginArray();
        while (!argument.atEnd()) {
            Node child;
            QDBusObjectPath path;
            argument.beginStructure();
            argument >> child.service >> path;
            argument.endStructure();
            child.path = path.path();
            result.append(child);
        }
        argument.endArray();
        return result;
    }

    // Buttons offer more than one action (focus, press); the index of "press".
    int pressIndex(const Node &node)
    {
        const QDBusMessage reply = m_bus->call(QDBusMessage::createMethodCall(
            node.service, node.path, QStringLiteral("org.a11y.atspi.Action"), QStringLiteral("GetActions")));
        const QDBusArgument argument = reply.arguments().value(0).value<QDBusArgument>();
        int index = 0;
        argument.beginArray();
        while (!argument.atEnd()) {
            QString name, description, keys;
            argument.beginStructure();
            argument >> name >> description >> keys;
            argument.endStructure();
            if (name.compare(QStringLiteral("press"), Qt::CaseInsensitive) == 0)
                return index;
            ++index;
        }
        argument.endArray();
        return 0;
    }

    QString name(const Node &node)
    {
        QDBusMessage get = QDBusMessage::createMethodCall(node.service, node.path,
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QStringLiteral("org.a11y.atspi.Accessible") << QStringLiteral("Name");
        const QDBusMessage reply = m_bus->call(get);
        return reply.arguments().value(0).value<QDBusVariant>().variant().toString();
    }

    bool isEnabledButton(const Node &node)
    {
        const QDBusMessage role = m_bus->call(QDBusMessage::createMethodCall(
            node.service, node.path, QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("GetRole")));
        constexpr uint pushButton = 43;
        if (role.arguments().value(0).toUInt() != pushButton)
            return false;
        const QDBusMessage state = m_bus->call(QDBusMessage::createMethodCall(node.service, node.path,
            QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("GetState")));
        const QDBusArgument argument = state.arguments().value(0).value<QDBusArgument>();
        QList<uint> words;
        argument >> words;
        constexpr uint enabled = 8; // ATSPI_STATE_ENABLED
        return !words.isEmpty() && (words.first() & (1u << enabled));
    }

    std::optional<Node> find(const Node &node, const QString &wanted, int depth)
    {
        if (depth > 40)
            return std::nullopt;
        const auto kids = children(node);
        for (const Node &child : kids) {
            if (name(child) == wanted && isEnabledButton(child))
                return child;
            if (auto found = find(child, wanted, depth + 1))
                return found;
        }
        return std::nullopt;
    }

    std::optional<Node> editableText(const QString &appName)
    {
        const auto apps = children(
            { QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/accessible/root") });
        for (const Node &app : apps) {
            if (name(app) == appName)
                return findInterface(app, QStringLiteral("org.a11y.atspi.EditableText"), 0);
        }
        return std::nullopt;
    }

    std::optional<Node> findInterface(const Node &node, const QString &interface, int depth)
    {
        const QDBusMessage reply = m_bus->call(QDBusMessage::createMethodCall(node.service, node.path,
            QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("GetInterfaces")));
        if (reply.arguments().value(0).toStringList().contains(interface))
            return node;
        if (depth > 20)
            return std::nullopt;
        for (const Node &child : children(node)) {
            if (auto found = findInterface(child, interface, depth + 1))
                return found;
        }
        return std::nullopt;
    }

    std::unique_ptr<QDBusConnection> m_bus;
};
