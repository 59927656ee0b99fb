#include "AtspiAccessibility.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcAtspi, "tessary.platform.atspi", QtInfoMsg)

namespace {

const QString accessibleInterface = u"org.a11y.atspi.Accessible"_s;
const QString textInterface = u"org.a11y.atspi.Text"_s;
const QString editableTextInterface = u"org.a11y.atspi.EditableText"_s;
const QString registryService = u"org.a11y.atspi.Registry"_s;
const QString rootPath = u"/org/a11y/atspi/accessible/root"_s;
const QString nullPath = u"/org/a11y/atspi/null"_s;

// AT-SPI state bits (AtspiStateType)
constexpr int stateActive = 1;
constexpr int stateEditable = 7;
constexpr int stateFocused = 12;
constexpr int stateShowing = 25;

// Long enough for a busy editor, short enough that the user barely notices a hung one.
constexpr int callTimeoutMs = 250;
// The bus's launcher may be started for the question; it answers in milliseconds once up.
constexpr int busLookupTimeoutMs = 1000;
constexpr int stateDefunct = 6;
// Bounds the fallback search of an application's tree (large documents, long lists).
constexpr int treeWalkBudget = 600;
constexpr int treeWalkMs = 400;

struct ObjectReference
{
    QString service;
    QDBusObjectPath path;
};

QList<ObjectReference> readReferences(const QVariant &value)
{
    QList<ObjectReference> references;
    const auto argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        ObjectReference reference;
        argument.beginStructure();
        argument >> reference.service >> reference.path;
        argument.endStructure();
        references.append(reference);
    }
    argument.endArray();
    return references;
}

} // namespace

AtspiAccessibility::AtspiAccessibility(QObject *parent)
    : QObject(parent)
{
    // Found in the background: neither the launch nor the shortcut waits for the bus, and
    // the first capture that needs it waits only for this answer.
    lookUpBus();
}

AtspiAccessibility::~AtspiAccessibility()
{
    if (m_bus)
        QDBusConnection::disconnectFromBus(m_bus->name());
}

void AtspiAccessibility::lookUpBus()
{
    if (m_lookingUp)
        return;
    m_lookingUp = true;
    QDBusMessage request = QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.a11y.Bus"_s, u"GetAddress"_s);
    auto *watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(request, busLookupTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        m_lookingUp = false;
        const QDBusMessage reply = watcher->reply();
        if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty())
            attach(reply.arguments().constFirst().toString());
        else
            qCDebug(lcAtspi) << "no accessibility bus:" << reply.errorMessage();
        for (const auto &next : std::exchange(m_waitingForBus, {}))
            next();
    });
}

void AtspiAccessibility::whenBusKnown(std::function<void()> next)
{
    if (m_bus) {
        next();
        return;
    }
    // Not found yet, or not there at the last look: the user may have turned it on since.
    m_waitingForBus.append(std::move(next));
    lookUpBus();
}

void AtspiAccessibility::attach(const QString &address)
{
    QDBusConnection bus = QDBusConnection::connectToBus(address, u"tessary-a11y"_s);
    if (!bus.isConnected()) {
        qCDebug(lcAtspi) << "cannot connect to the accessibility bus:" << bus.lastError().message();
        return;
    }
    m_bus = bus;

    // Applications only send focus events that somebody has registered for.
    bus.connect(QString(), QString(), u"org.a11y.atspi.Event.Object"_s, u"StateChanged"_s, this,
        SLOT(onStateChanged(QDBusMessage)));
    const Element registry { registryService, u"/org/a11y/atspi/registry"_s };
    const QString interface = u"org.a11y.atspi.Registry"_s;
    const QString event = u"object:state-changed:focused"_s;
    call(registry, interface, u"RegisterEvent"_s, { event, QStringList(), QString() },
        [this, registry, interface, event](const std::optional<QDBusMessage> &reply) {
            // registries before 2.46 take the event name alone
            if (!reply)
                call(registry, interface, u"RegisterEvent"_s, { event }, [](const auto &) {});
        });
}

bool AtspiAccessibility::isEnabled(const QDBusMessage &reply)
{
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
        && reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

void AtspiAccessibility::status(std::function<void(AccessibilityStatus)> done)
{
    QDBusMessage request = QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    request << u"org.a11y.Status"_s << u"IsEnabled"_s;
    auto *watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(request, busLookupTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, done = std::move(done)] {
        watcher->deleteLater();
        const QDBusMessage reply = watcher->reply();
        const AccessibilityStatus status { isEnabled(reply), reply.type() == QDBusMessage::ReplyMessage };
        if (status.on && !m_bus)
            lookUpBus();
        done(status);
    });
}

void AtspiAccessibility::turnOn(std::function<void(bool on)> done)
{
    // The bus's launcher keeps GNOME's own switch (toolkit-accessibility) in step with
    // this property, so no GSettings code is needed here.
    QDBusMessage request = QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.freedesktop.DBus.Properties"_s, u"Set"_s);
    request << u"org.a11y.Status"_s << u"IsEnabled"_s << QVariant::fromValue(QDBusVariant(true));
    auto *watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(request, busLookupTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, done = std::move(done)] {
        watcher->deleteLater();
        if (watcher->isError())
            qCDebug(lcAtspi) << "cannot turn accessibility on:" << watcher->error().message();
        status([done](AccessibilityStatus now) { done(now.on); });
    });
}

void AtspiAccessibility::call(const Element &element, const QString &interface, const QString &method,
    const QVariantList &arguments, Reply answer)
{
    if (!m_bus || element.service.isEmpty() || element.path.isEmpty()) {
        answer(std::nullopt);
        return;
    }
    QDBusMessage request = QDBusMessage::createMethodCall(element.service, element.path, interface, method);
    request.setArguments(arguments);
    auto *watcher = new QDBusPendingCallWatcher(m_bus->asyncCall(request, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, method, answer = std::move(answer)] {
        watcher->deleteLater();
        const QDBusMessage reply = watcher->reply();
        if (reply.type() != QDBusMessage::ReplyMessage) {
            qCDebug(lcAtspi) << method << "failed:" << reply.errorName();
            answer(std::nullopt);
            return;
        }
        answer(reply);
    });
}

void AtspiAccessibility::onStateChanged(const QDBusMessage &message)
{
    const QVariantList args = message.arguments();
    if (args.size() < 2 || args.at(0).toString() != u"focused")
        return;
    // A loss is not forgotten: while the shortcut's key grab is active, and while our
    // popup is in front, the element gives the focus up and takes it back later. What
    // counts is the last element that had it in the application that is in front.
    if (args.at(1).toInt() == 0)
        return;
    m_focusedPaths.insert(message.service(), message.path());
    m_focusOrder.removeAll(message.service());
    m_focusOrder.prepend(message.service());
}

void AtspiAccessibility::pidOf(const QString &busName, std::function<void(std::optional<quint32>)> answer)
{
    if (const auto known = m_pids.constFind(busName); known != m_pids.cend()) {
        answer(*known);
        return;
    }
    call({ u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s }, u"org.freedesktop.DBus"_s,
        u"GetConnectionUnixProcessID"_s, { busName },
        [this, busName, answer = std::move(answer)](const std::optional<QDBusMessage> &reply) {
            if (!reply || reply->arguments().isEmpty()) {
                answer(std::nullopt);
                return;
            }
            const quint32 pid = reply->arguments().constFirst().toUInt();
            m_pids.insert(busName, pid);
            answer(pid);
        });
}

void AtspiAccessibility::lastFocusedApplication(std::function<void(std::optional<quint32> pid)> done)
{
    whenBusKnown([this, done = std::move(done)]() mutable { askFocusedApplication(std::move(done)); });
}

void AtspiAccessibility::askFocusedApplication(std::function<void(std::optional<quint32> pid)> done)
{
    // Only a window that is active counts: an application off the bus may be in front,
    // and the one that last reported a focus must not be taken for it. Those that did
    // report one are asked first.
    call({ registryService, rootPath }, accessibleInterface, u"GetChildren"_s, {},
        [this, done = std::move(done)](const std::optional<QDBusMessage> &apps) {
            QList<Element> elements;
            for (const ObjectReference &app :
                apps ? readReferences(apps->arguments().value(0)) : QList<ObjectReference>())
                elements.append({ app.service, app.path.path() });
            const auto recency = [this](const Element &app) {
                const qsizetype at = m_focusOrder.indexOf(app.service);
                return at < 0 ? m_focusOrder.size() : at;
            };
            std::stable_sort(elements.begin(), elements.end(),
                [&recency](const Element &a, const Element &b) { return recency(a) < recency(b); });
            applicationWithActiveWindow(elements, done);
        });
}

void AtspiAccessibility::applicationWithActiveWindow(
    QList<Element> apps, std::function<void(std::optional<quint32>)> done)
{
    if (apps.isEmpty()) {
        done(std::nullopt);
        return;
    }
    const Element app = apps.takeFirst();
    call(app, accessibleInterface, u"GetChildren"_s, {},
        [this, app, apps, done = std::move(done)](const std::optional<QDBusMessage> &children) {
            QList<Element> windows;
            for (const ObjectReference &window :
                children ? readReferences(children->arguments().value(0)) : QList<ObjectReference>())
                windows.append({ window.service, window.path.path() });
            anyActive(windows, [this, app, apps, done](bool active) {
                if (!active) {
                    applicationWithActiveWindow(apps, done);
                    return;
                }
                pidOf(app.service, [this, apps, done](std::optional<quint32> pid) {
                    if (pid && *pid != quint32(QCoreApplication::applicationPid()))
                        done(pid);
                    else
                        applicationWithActiveWindow(apps, done);
                });
            });
        });
}

void AtspiAccessibility::anyActive(QList<Element> windows, std::function<void(bool active)> done)
{
    if (windows.isEmpty()) {
        done(false);
        return;
    }
    const Element window = windows.takeFirst();
    states(window, [this, windows, done = std::move(done)](std::optional<quint64> bits) {
        if (bits && (*bits & (quint64(1) << stateActive)))
            done(true);
        else
            anyActive(windows, done);
    });
}

void AtspiAccessibility::states(const Element &element, std::function<void(std::optional<quint64>)> answer)
{
    call(element, accessibleInterface, u"GetState"_s, {},
        [answer = std::move(answer)](const std::optional<QDBusMessage> &reply) {
            if (!reply || reply->arguments().isEmpty()) {
                answer(std::nullopt);
                return;
            }
            const auto argument = reply->arguments().constFirst().value<QDBusArgument>();
            QList<quint32> words;
            argument >> words;
            quint64 bits = 0;
            for (int i = 0; i < words.size() && i < 2; ++i)
                bits |= quint64(words.at(i)) << (32 * i);
            answer(bits);
        });
}

void AtspiAccessibility::focusedElement(const RunningApplication &app, std::function<void(FocusResult)> done)
{
    whenBusKnown([this, app, done = std::move(done)]() mutable {
        if (!m_bus) {
            // Without the bus keys typed still reach the window: answer with the window as a
            // whole, which has no text to read or set, so callers go on to the clipboard.
            done({ AxError::Success, Element {} });
            return;
        }
        checkRemembered(app, m_focusOrder, std::move(done));
    });
}

void AtspiAccessibility::checkRemembered(
    const RunningApplication &app, QStringList services, std::function<void(FocusResult)> done)
{
    if (services.isEmpty()) {
        searchTree(app, std::move(done));
        return;
    }
    const Element candidate { services.takeFirst(), {} };
    const Element remembered { candidate.service, m_focusedPaths.value(candidate.service) };
    pidOf(remembered.service,
        [this, app, services, remembered, done = std::move(done)](std::optional<quint32> pid) mutable {
            if (!pid) {
                // The application has left the bus: forget it.
                m_focusedPaths.remove(remembered.service);
                m_focusOrder.removeAll(remembered.service);
            }
            if (pid != quint32(app.pid)) {
                checkRemembered(app, services, std::move(done));
                return;
            }
            // The application in front: its last focused element, unless it is gone.
            states(remembered, [this, app, services, remembered, done](std::optional<quint64> bits) mutable {
                const bool usable = bits && !(*bits & (quint64(1) << stateDefunct))
                    && (*bits & ((quint64(1) << stateShowing) | (quint64(1) << stateFocused)));
                if (usable) {
                    qCDebug(lcAtspi) << "focus from events:" << remembered.path;
                    done({ AxError::Success, remembered });
                    return;
                }
                checkRemembered(app, services, std::move(done));
            });
        });
}

struct AtspiAccessibility::Walk
{
    RunningApplication app;
    QList<std::pair<Element, int>> stack; // element and depth: 0 application, 1 its windows
    int budget = treeWalkBudget;
    QElapsedTimer clock;
    std::function<void(FocusResult)> done;
};

void AtspiAccessibility::searchTree(const RunningApplication &app, std::function<void(FocusResult)> done)
{
    auto search = std::make_shared<Walk>();
    search->app = app;
    search->done = std::move(done);
    search->clock.start();
    call({ registryService, rootPath }, accessibleInterface, u"GetChildren"_s, {},
        [this, search](const std::optional<QDBusMessage> &apps) {
            if (!apps) {
                search->done({ AxError::Success, Element {} });
                return;
            }
            // Which of the applications on the bus is the one in front: ask each its process.
            auto candidates
                = std::make_shared<QList<ObjectReference>>(readReferences(apps->arguments().value(0)));
            auto next = std::make_shared<std::function<void()>>();
            *next = [this, search, candidates, next] {
                if (candidates->isEmpty()) {
                    // Dropping the function breaks its reference cycle and destroys this
                    // lambda's captures: work on copies from here.
                    AtspiAccessibility *self = this;
                    const auto found = search;
                    *next = nullptr;
                    self->walk(found);
                    return;
                }
                const ObjectReference reference = candidates->takeFirst();
                pidOf(reference.service, [search, reference, next](std::optional<quint32> pid) {
                    if (pid == quint32(search->app.pid))
                        search->stack.append({ Element { reference.service, reference.path.path() }, 0 });
                    if (*next)
                        (*next)();
                });
            };
            (*next)();
        });
}

void AtspiAccessibility::walk(std::shared_ptr<Walk> search)
{
    if (search->stack.isEmpty() || --search->budget < 0 || search->clock.elapsed() > treeWalkMs) {
        search->done({ AxError::Success, Element {} });
        return;
    }
    const auto [node, depth] = search->stack.takeLast();
    const auto descend = [this, search, node = node, depth = depth] {
        call(node, accessibleInterface, u"GetChildren"_s, {},
            [this, search, depth](const std::optional<QDBusMessage> &children) {
                if (children) {
                    const auto references = readReferences(children->arguments().value(0));
                    // Last pushed is visited first: push in reverse to keep the tree's order.
                    for (auto it = references.crbegin(); it != references.crend(); ++it) {
                        if (it->path.path() != nullPath)
                            search->stack.append({ Element { it->service, it->path.path() }, depth + 1 });
                    }
                }
                walk(search);
            });
    };
    if (depth == 0) {
        descend();
        return;
    }
    states(node, [this, search, node = node, depth = depth, descend](std::optional<quint64> bits) {
        if (!bits) {
            walk(search);
            return;
        }
        if (*bits & (quint64(1) << stateFocused)) {
            qCDebug(lcAtspi) << "focus from the tree:" << node.path;
            m_focusedPaths.insert(node.service, node.path);
            m_focusOrder.removeAll(node.service);
            m_focusOrder.prepend(node.service);
            search->done({ AxError::Success, node });
            return;
        }
        // Hidden parts (closed menus, other tabs) cannot hold the keyboard focus; of
        // the application's windows only the active one can.
        const bool isWindow = depth == 1;
        if (!(*bits & (quint64(1) << stateShowing)) || (isWindow && !(*bits & (quint64(1) << stateActive)))) {
            walk(search);
            return;
        }
        descend();
    });
}

void AtspiAccessibility::selection(
    const Element &element, std::function<void(std::optional<Selection>)> answer)
{
    call(element, textInterface, u"GetNSelections"_s, {},
        [this, element, answer = std::move(answer)](const std::optional<QDBusMessage> &count) {
            if (!count || count->arguments().isEmpty()) {
                answer(std::nullopt);
                return;
            }
            if (count->arguments().constFirst().toInt() < 1) {
                answer(Selection {});
                return;
            }
            call(element, textInterface, u"GetSelection"_s, { 0 },
                [answer](const std::optional<QDBusMessage> &range) {
                    if (!range || range->arguments().size() < 2) {
                        answer(std::nullopt);
                        return;
                    }
                    const int start = range->arguments().at(0).toInt();
                    const int end = range->arguments().at(1).toInt();
                    answer(Selection { qMin(start, end), qMax(start, end) });
                });
        });
}

void AtspiAccessibility::text(
    const Element &element, int start, int end, std::function<void(std::optional<QString>)> answer)
{
    call(element, textInterface, u"GetText"_s, { start, end },
        [answer = std::move(answer)](const std::optional<QDBusMessage> &reply) {
            if (!reply || reply->arguments().isEmpty())
                answer(std::nullopt);
            else
                answer(reply->arguments().constFirst().toString());
        });
}

void AtspiAccessibility::selectedText(
    const Element &element, std::function<void(std::optional<QString>)> done)
{
    selection(element, [this, element, done = std::move(done)](std::optional<Selection> range) {
        if (!range) {
            done(std::nullopt);
            return;
        }
        if (range->start == range->end) {
            done(QString());
            return;
        }
        text(element, range->start, range->end, done);
    });
}

void AtspiAccessibility::setSelectedText(
    const Element &element, const QString &replacement, std::function<void(int)> done)
{
    states(element, [this, element, replacement, done = std::move(done)](std::optional<quint64> bits) {
        if (!bits) {
            done(AxError::CannotComplete);
            return;
        }
        if (!(*bits & (quint64(1) << stateEditable))) {
            done(AxError::AttributeUnsupported);
            return;
        }
        selection(element, [this, element, replacement, done](std::optional<Selection> range) {
            if (!range) {
                done(AxError::AttributeUnsupported);
                return;
            }
            if (range->start == range->end) {
                // Nothing selected: the text goes in at the caret, as typing would put it.
                call(element, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
                    { textInterface, u"CaretOffset"_s },
                    [this, element, replacement, done](const std::optional<QDBusMessage> &caret) {
                        if (!caret || caret->arguments().isEmpty()) {
                            done(AxError::CannotComplete);
                            return;
                        }
                        const int offset
                            = caret->arguments().constFirst().value<QDBusVariant>().variant().toInt();
                        insertAt(element, offset, replacement, done);
                    });
                return;
            }
            call(element, editableTextInterface, u"DeleteText"_s, { range->start, range->end },
                [this, element, replacement, done, start = range->start](
                    const std::optional<QDBusMessage> &deleted) {
                    if (!deleted || !deleted->arguments().value(0).toBool()) {
                        done(AxError::AttributeUnsupported);
                        return;
                    }
                    insertAt(element, start, replacement, done);
                });
        });
    });
}

void AtspiAccessibility::selectedRange(
    const Element &element, std::function<void(std::optional<TextRange>)> done)
{
    selection(element, [done = std::move(done)](std::optional<Selection> range) {
        done(range ? std::optional<TextRange>(TextRange { range->start, range->end }) : std::nullopt);
    });
}

void AtspiAccessibility::textIn(
    const Element &element, TextRange range, std::function<void(std::optional<QString>)> done)
{
    text(element, range.start, range.end, std::move(done));
}

void AtspiAccessibility::replaceRange(
    const Element &element, TextRange range, const QString &replacement, std::function<void(int)> done)
{
    states(element, [this, element, range, replacement, done = std::move(done)](std::optional<quint64> bits) {
        if (!bits || (*bits & (quint64(1) << stateDefunct))) {
            done(AxError::CannotComplete);
            return;
        }
        if (!(*bits & (quint64(1) << stateEditable))) {
            done(AxError::AttributeUnsupported);
            return;
        }
        call(element, editableTextInterface, u"DeleteText"_s, { range.start, range.end },
            [this, element, range, replacement, done](const std::optional<QDBusMessage> &deleted) {
                if (!deleted || !deleted->arguments().value(0).toBool()) {
                    done(AxError::AttributeUnsupported);
                    return;
                }
                insertAt(element, range.start, replacement, done);
            });
    });
}

void AtspiAccessibility::insertAt(
    const Element &element, int start, const QString &replacement, std::function<void(int)> done)
{
    // GTK counts this length in bytes of UTF-8, other toolkits in characters; the byte
    // count is never shorter, so it is right for both.
    call(element, editableTextInterface, u"InsertText"_s,
        { start, replacement, int(replacement.toUtf8().size()) },
        [this, element, start, replacement, done = std::move(done)](
            const std::optional<QDBusMessage> &inserted) {
            if (!inserted || !inserted->arguments().value(0).toBool()) {
                done(AxError::CannotComplete);
                return;
            }
            // Offsets count characters (code points) in GTK; some toolkits count UTF-16 units.
            const int codePoints = int(replacement.toUcs4().size());
            text(element, start, start + codePoints,
                [this, element, start, replacement, done](std::optional<QString> written) {
                    if (written == replacement) {
                        done(AxError::Success);
                        return;
                    }
                    text(element, start, start + int(replacement.size()),
                        [replacement, done](std::optional<QString> units) {
                            if (units != replacement)
                                qCDebug(lcAtspi) << "replacement not found where it was inserted";
                            done(units == replacement ? AxError::Success : AxError::CannotComplete);
                        });
                });
        });
}
