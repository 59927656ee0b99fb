#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>

// A small accessibility-bus client, playing the user's screen reader: presses Tessary's
// buttons by name, and selects and reads an editor's text; it also says where a button is
// for a click.
class AtspiClient
{
public:
    bool connect()
    {
        const QDBusMessage reply = QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
            u"org.a11y.Bus"_qs, u"/org/a11y/bus"_qs, u"org.a11y.Bus"_qs, u"GetAddress"_qs));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return false;
        m_bus = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(reply.arguments().value(0).toString(), u"tessary-test-a11y"_qs));
        return m_bus->isConnected();
    }

    // true when a button of that name was found on screen, enabled, and pressed.
    bool press(const QString &name)
    {
        return press(QRegularExpression(u"^"_qs + QRegularExpression::escape(name) + u"$"_qs));
    }
    // The same for the first button whose whole name the pattern matches, for names that
    // carry what a test does not know, such as a port.
    bool press(const QRegularExpression &pattern)
    {
        for (const Node &app : children(root())) {
            if (!this->name(app).contains(u"essary"_qs, Qt::CaseInsensitive))
                continue;
            // A page sliding away keeps its buttons until it has gone; only one on screen counts.
            constexpr int visibleState = 30; // ATSPI_STATE_VISIBLE
            const auto pressable = [&](const Node &node) {
                return pattern.match(this->name(node)).hasMatch() && isPressable(node)
                    && hasState(node, visibleState);
            };
            if (auto button = find(app, pressable)) {
                const QDBusMessage reply
                    = call(*button, u"Action"_qs, u"DoAction"_qs, { pressIndex(*button) });
                return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
            }
        }
        return false;
    }

    // How many elements of that name Tessary has on screen: a page sliding away still
    // shows its own for a moment.
    int shownCount(const QString &elementName)
    {
        constexpr int visibleState = 30; // ATSPI_STATE_VISIBLE
        int count = 0;
        findInTessary([&](const Node &node) {
            count += name(node) == elementName && hasState(node, visibleState) ? 1 : 0;
            return false;
        });
        return count;
    }
    // The name of the element of Tessary's that has the keyboard; empty when none has.
    QString focused()
    {
        // The scopes around it say they are focused too; it comes after them, depth first.
        constexpr int focusedState = 12; // ATSPI_STATE_FOCUSED
        QString last;
        findInTessary([&](const Node &node) {
            if (hasState(node, focusedState))
                last = name(node);
            return false;
        });
        return last;
    }

    // Whether Tessary's element of that name, on screen, is checked; none when there is none.
    std::optional<bool> checked(const QString &elementName)
    {
        constexpr int checkedState = 4; // ATSPI_STATE_CHECKED
        const auto node = shown(elementName);
        return node ? std::optional<bool>(hasState(*node, checkedState)) : std::nullopt;
    }

    // Whether an element of Tessary's of that name (a window, by its title) is on screen.
    bool shows(const QString &elementName) { return shown(elementName).has_value(); }

    // Where Tessary's element of that name stands on the screen, for a click of the mouse;
    // empty when it is not on screen.
    QRect screenRect(const QString &elementName)
    {
        constexpr uint screenCoordinates = 0; // ATSPI_COORD_TYPE_SCREEN
        const auto node = shown(elementName);
        if (!node)
            return {};
        const QDBusArgument extents = call(*node, u"Component"_qs, u"GetExtents"_qs, { screenCoordinates })
                                          .arguments()
                                          .value(0)
                                          .value<QDBusArgument>();
        int x = 0, y = 0, width = 0, height = 0;
        extents.beginStructure();
        extents >> x >> y >> width >> height;
        extents.endStructure();
        return { x, y, width, height };
    }

    // The description a screen reader reads after the name.
    QString description(const QString &elementName)
    {
        const auto node = shown(elementName);
        return node ? property(*node, u"Description"_qs) : QString();
    }

    // Selects [start, end) of the first editable text of the application called appName.
    bool select(const QString &appName, int start, int end)
    {
        const auto text = editableText(appName);
        return text
            && call(*text, u"Text"_qs, u"AddSelection"_qs, { start, end }).arguments().value(0).toBool();
    }

    QString text(const QString &appName)
    {
        const auto text = editableText(appName);
        return text ? call(*text, u"Text"_qs, u"GetText"_qs, { 0, -1 }).arguments().value(0).toString()
                    : QString();
    }

private:
    struct Node
    {
        QString service;
        QString path;
    };

    static Node root() { return { u"org.a11y.atspi.Registry"_qs, u"/org/a11y/atspi/accessible/root"_qs }; }

    // A call to one of the element's org.a11y.atspi interfaces.
    QDBusMessage call(
        const Node &node, const QString &interface, const QString &member, const QVariantList &arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(
            node.service, node.path, u"org.a11y.atspi."_qs + interface, member);
        message.setArguments(arguments);
        return m_bus->call(message);
    }

    // The first argument of the reply, an array of structures, one item read per element.
    template<typename Read> static void forEach(const QDBusMessage &reply, Read read)
    {
        const QDBusArgument argument = reply.arguments().value(0).value<QDBusArgument>();
        argument.beginArray();
        while (!argument.atEnd()) {
            argument.beginStructure();
            read(argument);
            argument.endStructure();
        }
        argument.endArray();
    }

    QList<Node> children(const Node &node)
    {
        QList<Node> result;
        const QDBusMessage reply = call(node, u"Accessible"_qs, u"GetChildren"_qs);
        if (reply.type() == QDBusMessage::ReplyMessage) {
            forEach(reply, [&](const QDBusArgument &argument) {
                QDBusObjectPath path;
                result.append(Node {});
                argument >> result.last().service >> path;
                result.last().path = path.path();
            });
        }
        return result;
    }

    // Buttons offer more than one action (focus, press); the index of "press".
    int pressIndex(const Node &node)
    {
        QStringList names;
        forEach(call(node, u"Action"_qs, u"GetActions"_qs), [&](const QDBusArgument &argument) {
            QString name, description, keys;
            argument >> name >> description >> keys;
            names.append(name.toLower());
        });
        return int(std::max<qsizetype>(0, names.indexOf(u"press"_qs)));
    }

    QString property(const Node &node, const QString &which)
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            node.service, node.path, u"org.freedesktop.DBus.Properties"_qs, u"Get"_qs);
        get << u"org.a11y.atspi.Accessible"_qs << which;
        return m_bus->call(get).arguments().value(0).value<QDBusVariant>().variant().toString();
    }
    QString name(const Node &node) { return property(node, u"Name"_qs); }

    bool hasState(const Node &node, int state)
    {
        QList<uint> words;
        call(node, u"Accessible"_qs, u"GetState"_qs).arguments().value(0).value<QDBusArgument>() >> words;
        return words.size() > state / 32 && (words.at(state / 32) & (1u << (state % 32)));
    }

    // The first element of Tessary's windows that matches, depth first.
    std::optional<Node> findInTessary(const std::function<bool(const Node &)> &matches)
    {
        for (const Node &app : children(root())) {
            if (!name(app).contains(u"essary"_qs, Qt::CaseInsensitive))
                continue;
            if (auto found = find(app, matches))
                return found;
        }
        return std::nullopt;
    }
    // Tessary's element of that name in a window on screen (a popup built ahead is not).
    std::optional<Node> shown(const QString &elementName)
    {
        constexpr int visibleState = 30; // ATSPI_STATE_VISIBLE
        return findInTessary(
            [&](const Node &node) { return name(node) == elementName && hasState(node, visibleState); });
    }

    // Something a press acts on, and not disabled (as far as the toolkit tells the bus).
    bool isPressable(const Node &node)
    {
        // A push button, or one that stays pressed: a check box, radio or toggle button; or
        // a row of a list, which is chosen by pressing it.
        constexpr uint checkBox = 7, listItem = 32, pushButton = 43, radioButton = 44, toggleButton = 62;
        const uint role = call(node, u"Accessible"_qs, u"GetRole"_qs).arguments().value(0).toUInt();
        if (role != pushButton && role != checkBox && role != radioButton && role != toggleButton
            && role != listItem)
            return false;
        QList<uint> words;
        call(node, u"Accessible"_qs, u"GetState"_qs).arguments().value(0).value<QDBusArgument>() >> words;
        constexpr uint enabled = 8; // ATSPI_STATE_ENABLED
        return !words.isEmpty() && (words.first() & (1u << enabled));
    }

    // The first element below node, depth first, that matches.
    std::optional<Node> find(
        const Node &node, const std::function<bool(const Node &)> &matches, int depth = 0)
    {
        for (const Node &child : children(node)) {
            if (matches(child))
                return child;
            if (auto found = depth < 40 ? find(child, matches, depth + 1) : std::nullopt)
                return found;
        }
        return std::nullopt;
    }

    std::optional<Node> editableText(const QString &appName)
    {
        const auto editable = [this](const Node &node) {
            return call(node, u"Accessible"_qs, u"GetInterfaces"_qs)
                .arguments()
                .value(0)
                .toStringList()
                .contains(u"org.a11y.atspi.EditableText"_qs);
        };
        for (const Node &app : children(root())) {
            if (name(app) == appName)
                return find(app, editable);
        }
        return std::nullopt;
    }

    std::unique_ptr<QDBusConnection> m_bus;
};
