// Faults: a control that does not write the store, wrong sample rows, Check usable while checking, a wrong
// last-check line, no close, Escape ignored, a field without a name or a control deaf to a screen reader's
// Press.
#include "FakeDesktopShortcut.h"
#include "QuickItems.h"
#include "Replies.h"
#include "SettingsModel.h"
#include "StorageManager.h"

#include <QAccessible>
#include <QKeySequence>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <memory>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_SettingsPlugin)

using namespace Qt::StringLiterals;

// The settings window as the user meets it: the controls read and write the store,
// and the window closes from Done and from Return (not from Return in a sample).
class TestSettingsView : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_stores = 0;

    struct View
    {
        View(const QString &path, const QString &autostart, const QList<ModelProbe::Candidate> &localServers,
            DesktopShortcut *shortcut = nullptr)
            : storage(path, u"http://127.0.0.1:8787/api/v1"_s)
            , model(
                  storage, autostart, [](const QUrl &) { return true; }, localServers, shortcut)
        {
            engine.addImportPath(u"qrc:/qt/qml"_s);
        }
        void load()
        {
            QQmlComponent component(&engine, QUrl(u"qrc:/qt/qml/Tessary/Settings/SettingsView.qml"_s));
            window.reset(qobject_cast<QQuickWindow *>(
                component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(&model) } })));
            if (!window)
                qFatal("%s", qPrintable(component.errorString()));
            window->show();
            if (!QTest::qWaitForWindowExposed(window.get()))
                qFatal("settings window not shown");
        }
        QQuickItem *item(const QString &name) const
        {
            return QuickItems::all(window->contentItem(), name).value(0);
        }
        QList<QQuickItem *> items(const QString &name) const
        {
            // Rows just added or changed are placed when the next frame is prepared.
            QSignalSpy rendered(window.get(), &QQuickWindow::frameSwapped);
            window->update();
            rendered.wait(2000);
            QList<QQuickItem *> found = QuickItems::all(window->contentItem(), name);
            found.removeIf([](QQuickItem *item) { return !item->isVisible(); });
            // In row order, top to bottom.
            std::sort(found.begin(), found.end(), [](QQuickItem *a, QQuickItem *b) {
                return a->mapToScene(QPointF()).y() < b->mapToScene(QPointF()).y();
            });
            return found;
        }
        // Scrolls the settings so that the item is in the window; false while the layout
        // has not yet caught up with rows just added.
        bool reveal(QQuickItem *target) const
        {
            auto *flickable = item(u"scroll"_s)->property("contentItem").value<QQuickItem *>();
            auto *content = flickable->property("contentItem").value<QQuickItem *>();
            const qreal y = target->mapToItem(content, QPointF()).y();
            const qreal last = flickable->property("contentHeight").toReal() - flickable->height();
            flickable->setProperty("contentY", std::clamp(y - 100, 0.0, std::max(0.0, last)));
            if (!content->isAncestorOf(target))
                return true;
            const QPointF centre
                = target->mapToItem(flickable, QPointF(target->width() / 2, target->height() / 2));
            return centre.y() >= 0 && centre.y() < flickable->height();
        }
        void click(QQuickItem *item) const
        {
            QTRY_VERIFY(reveal(item));
            const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
            QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
        }

        StorageManager storage;
        SettingsModel model;
        QQmlEngine engine;
        std::unique_ptr<QQuickWindow> window;
    };

    static void type(QWindow *window, const char *text)
    {
        for (const char *c = text; *c; ++c)
            QTest::keyClick(window, *c);
    }

    // A model server on this computer, as llama.cpp's answers.
    static bool serveModels(FixtureServer &server)
    {
        server.route("/v1/models",
            jsonReply(200, R"({"object":"list","data":[{"id":"phi-3.gguf"},{"id":"qwen2.5.gguf"}]})"));
        return server.listen();
    }

    std::unique_ptr<View> makeView(const QStringList &samples,
        const QList<ModelProbe::Candidate> &localServers = {}, DesktopShortcut *shortcut = nullptr)
    {
        auto view = std::make_unique<View>(m_dir.filePath(u"s%1/Tessary.conf"_s.arg(++m_stores)),
            m_dir.filePath(u"autostart"_s), localServers, shortcut);
        view->storage.setExamples(samples);
        view->load();
        return view;
    }

private Q_SLOTS:
    // One editor per sample; "Add sample" only while fewer than five are stored.
    void sampleRows_data()
    {
        QTest::addColumn<int>("stored");
        QTest::addColumn<bool>("addShown");
        QTest::newRow("none") << 0 << true;
        QTest::newRow("five") << 5 << false;
        QTest::newRow("seven") << 7 << false;
    }
    void sampleRows()
    {
        QFETCH(int, stored);
        QStringList samples;
        for (int i = 0; i < stored; ++i)
            samples.append(u"sample %1"_s.arg(i));
        auto view = makeView(samples);
        QTRY_COMPARE(view->items(u"sampleEditor"_s).size(), stored);
        QFETCH(bool, addShown);
        QTRY_COMPARE(view->item(u"addSample"_s)->isVisible(), addShown);
        QCOMPARE(view->items(u"removeSample"_s).size(), stored);
    }

    void addRemoveAndType()
    {
        auto view = makeView({ u"a"_s, u"b"_s, u"c"_s, u"d"_s });
        view->click(view->item(u"addSample"_s));
        QCOMPARE(view->storage.examples(), (QStringList { u"a"_s, u"b"_s, u"c"_s, u"d"_s, QString() }));
        QTRY_VERIFY(!view->item(u"addSample"_s)->isVisible());

        // Typing writes through on every keystroke, into the row typed in.
        QQuickItem *editor = view->items(u"sampleEditor"_s).at(4);
        editor->forceActiveFocus();
        QSignalSpy written(&view->storage, &StorageManager::examplesChanged);
        type(view->window.get(), " hi");
        QCOMPARE(written.size(), 3);
        QCOMPARE(view->storage.examples().at(4), u" hi"_s);
        // The row kept its editor (and the focus) while the store changed under it.
        QVERIFY(editor->hasActiveFocus());
        // Tab leaves the sample for the next control, and types nothing into it.
        QTest::keyClick(view->window.get(), Qt::Key_Tab);
        QVERIFY(!editor->hasActiveFocus());
        QCOMPARE(view->storage.examples().at(4), u" hi"_s);

        view->click(view->items(u"removeSample"_s).at(1));
        QCOMPARE(view->storage.examples(), (QStringList { u"a"_s, u"c"_s, u"d"_s, u" hi"_s }));
        QTRY_VERIFY(view->item(u"addSample"_s)->isVisible());
        QTRY_COMPARE(view->items(u"sampleEditor"_s).at(1)->property("text").toString(), u"c"_s);
    }

    // Saved instructions: added empty, typed into their own row, removed by position; the
    // history's switch and days write through.
    void instructionsAndHistory()
    {
        auto view = makeView({});
        view->storage.setSavedInstructions({ u"shorter"_s });
        view->click(view->item(u"addInstruction"_s));
        QCOMPARE(view->storage.savedInstructions(), (QStringList { u"shorter"_s, QString() }));
        QTRY_COMPARE(view->items(u"instructionEditor"_s).size(), 2);
        view->items(u"instructionEditor"_s).at(1)->forceActiveFocus();
        type(view->window.get(), "in German");
        QCOMPARE(view->storage.savedInstructions(), (QStringList { u"shorter"_s, u"in German"_s }));
        view->click(view->items(u"removeInstruction"_s).at(0));
        QCOMPARE(view->storage.savedInstructions(), QStringList { u"in German"_s });
        QTRY_COMPARE(view->items(u"instructionEditor"_s).at(0)->property("text").toString(), u"in German"_s);

        QSignalSpy history(&view->model, &SettingsModel::historyRequested);
        view->click(view->item(u"openHistory"_s));
        QCOMPARE(history.size(), 1);
        QVERIFY(view->storage.historyEnabled());
        view->click(view->item(u"historyEnabled"_s));
        QVERIFY(!view->storage.historyEnabled());
        QVERIFY(!view->item(u"historyDays"_s)->isEnabled());
    }

    // A saved instruction's own shortcut, recorded from the keys pressed after a click on its
    // button: only a key with Ctrl, Alt or Super is one; Backspace clears it, Escape keeps it.
    void instructionShortcuts_data()
    {
        QTest::addColumn<QStringList>("steps"); // "click", a key sequence, "Ctrl alone"
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("shown");

        const QString waiting = u"Press keys…"_s;
        QTest::newRow("Ctrl+Alt+J") << QStringList { u"click"_s, u"Ctrl+Alt+J"_s }
                                    << QStringList { u"Ctrl+Alt+J"_s } << u"Ctrl+Alt+J"_s;
        QTest::newRow("Ctrl+Shift+F5") << QStringList { u"click"_s, u"Ctrl+Shift+F5"_s }
                                       << QStringList { u"Ctrl+Shift+F5"_s } << u"Ctrl+Shift+F5"_s;
        QTest::newRow("a modifier alone waits for the key")
            << QStringList { u"click"_s, u"Ctrl alone"_s } << QStringList {} << waiting;
        QTest::newRow("a letter alone is no shortcut")
            << QStringList { u"click"_s, u"J"_s } << QStringList {} << waiting;
        QTest::newRow("Shift alone is no shortcut either")
            << QStringList { u"click"_s, u"Shift+F5"_s } << QStringList {} << waiting;
        QTest::newRow("Backspace clears")
            << QStringList { u"click"_s, u"Ctrl+Alt+J"_s, u"click"_s, u"Backspace"_s }
            << QStringList { QString() } << u"Set shortcut"_s;
        QTest::newRow("Escape keeps what was")
            << QStringList { u"click"_s, u"Ctrl+Alt+J"_s, u"click"_s, u"Esc"_s }
            << QStringList { u"Ctrl+Alt+J"_s } << u"Ctrl+Alt+J"_s;
        QTest::newRow("keys without a click do nothing")
            << QStringList { u"Ctrl+Alt+J"_s } << QStringList {} << u"Set shortcut"_s;
    }
    void instructionShortcuts()
    {
        QFETCH(QStringList, steps);
        QFETCH(QString, shown);
        auto view = makeView({});
        view->storage.setSavedInstructions({ u"in German"_s, u"shorter"_s });
        QTRY_COMPARE(view->items(u"instructionShortcut"_s).size(), 2);
        QQuickItem *recorder = view->items(u"instructionShortcut"_s).at(0);
        for (const QString &step : std::as_const(steps)) {
            if (step == u"click") {
                view->click(recorder);
                QTRY_VERIFY(recorder->hasActiveFocus());
            } else if (step == u"Ctrl alone") {
                QTest::keyClick(view->window.get(), Qt::Key_Control, Qt::ControlModifier);
            } else {
                const QKeyCombination keys = QKeySequence::fromString(step, QKeySequence::PortableText)[0];
                QTest::keyClick(view->window.get(), keys.key(), keys.keyboardModifiers());
            }
        }
        QTEST(view->storage.instructionShortcuts(), "stored");
        QTRY_COMPARE(recorder->property("text").toString(), shown);
    }
    // A shortcut stays with its instruction when one before it goes; where the desktop binds
    // the keys, each instruction's command line is shown instead of a recorder.
    void shortcutFollowsItsInstruction()
    {
        auto view = makeView({});
        view->storage.setSavedInstructions({ u"in German"_s, u"it's shorter"_s });
        view->storage.setInstructionShortcuts({ u"Ctrl+Alt+G"_s, u"Ctrl+Alt+S"_s });
        QTRY_COMPARE(view->items(u"removeInstruction"_s).size(), 2);
        view->click(view->items(u"removeInstruction"_s).at(0));
        QCOMPARE(view->storage.savedInstructions(), QStringList { u"it's shorter"_s });
        QCOMPARE(view->storage.instructionShortcuts(), QStringList { u"Ctrl+Alt+S"_s });
        QCOMPARE(view->model.instructionCommand(0), u"tessary --trigger --instruction 'it'\\''s shorter'"_s);

        FakeDesktopShortcut desktop;
        auto bound = makeView({}, {}, &desktop);
        bound->storage.setSavedInstructions({ u"in German"_s });
        QTRY_COMPARE(bound->items(u"instructionCommand"_s).size(), 1);
        QCOMPARE(bound->items(u"instructionCommand"_s).at(0)->property("text").toString(),
            u"tessary --trigger --instruction 'in German'"_s);
        QVERIFY(bound->items(u"instructionShortcut"_s).isEmpty());
    }

    // The update, shortcut, key and toggle controls, on one window.
    void controls()
    {
        FakeDesktopShortcut shortcut;
        shortcut.error = u"Refused."_s;
        auto view = makeView({}, {}, &shortcut);
        QSignalSpy requested(&view->model, &SettingsModel::updateCheckRequested);
        QQuickItem *check = view->item(u"checkForUpdates"_s);
        QCOMPARE(check->property("text").toString(), u"Check now"_s);
        view->click(check);
        QCOMPARE(requested.size(), 1);

        view->model.setUpdateState(true, false, std::nullopt);
        QCOMPARE(check->property("text").toString(), u"Checking..."_s);
        QVERIFY(!check->isEnabled());
        view->click(check);
        QCOMPARE(requested.size(), 1);

        QVERIFY(!view->item(u"updateBox"_s)->isVisible());
        view->model.setUpdateState(
            false, true, SettingsModel::Release { u"9.9"_s, u"n"_s, u"https://x.org"_s });
        QVERIFY(check->isEnabled());
        QVERIFY(view->item(u"updateBox"_s)->isVisible());
        QVERIFY(!view->item(u"lastChecked"_s)->isVisible());
        view->storage.setLastVersionCheck(QDateTime(QDate(2026, 3, 14), QTime(15, 9)));
        const QString lastChecked = view->item(u"lastChecked"_s)->property("text").toString();
        QVERIFY2(lastChecked.startsWith(u"Last checked: "_s) && lastChecked.contains(u"14"_s),
            qPrintable(lastChecked));

        // Where the desktop runs Ctrl+Alt+H: the button is offered again after a refusal, then adds it.
        QQuickItem *add = view->item(u"addShortcut"_s);
        QQuickItem *message = view->item(u"shortcutMessage"_s);
        view->click(add);
        QCOMPARE(message->property("text").toString(), shortcut.error);
        shortcut.error.clear();
        view->click(add);
        QCOMPARE(message->property("text").toString(), u"Ctrl+Alt+H is set up."_s);
        QVERIFY(!add->isVisible());

        view->storage.setUpdateCheckEnabled(false);
        view->click(view->item(u"autoCheck"_s));
        QVERIFY(view->storage.updateCheckEnabled());

        QQuickItem *key = view->item(u"apiKeyField"_s);
        QCOMPARE(key->property("echoMode").toInt(), 2); // TextInput.Password
        QMetaObject::invokeMethod(view->window.get(), "focusApiKey");
        QVERIFY(key->hasActiveFocus());
        type(view->window.get(), "sk-1");
        QCOMPARE(view->storage.apiKey(), u"sk-1"_s);
        view->click(view->item(u"revealKey"_s));
        QCOMPARE(key->property("echoMode").toInt(), 0); // TextInput.Normal
    }

    // The language model is picked with the mouse from what this computer runs, tested
    // without a rewrite, and the result line goes when a field changes.
    void languageModel()
    {
        FixtureServer server;
        QVERIFY(serveModels(server));
        auto view = makeView({}, { { server.port(), u"llama.cpp"_s } });
        QVERIFY(view->item(u"apiKeyField"_s)->isVisible());

        view->click(view->item(u"providerLocal"_s));
        QCOMPARE(view->storage.provider(), StorageManager::Provider::LocalModel);
        QVERIFY(!view->item(u"apiKeyField"_s)->isVisible());
        QTRY_VERIFY(view->item(u"localModel1"_s) && view->item(u"localModel1"_s)->isVisible());
        QCOMPARE(view->item(u"localModel1"_s)->property("text").toString(),
            u"qwen2.5.gguf — llama.cpp (127.0.0.1:%1)"_s.arg(server.port()));
        QVERIFY(!view->storage.serviceUsable());
        view->click(view->item(u"localModel1"_s));
        QCOMPARE(view->storage.model(), u"qwen2.5.gguf"_s);
        QCOMPARE(view->storage.modelBase(), server.url("/v1").toString());
        QVERIFY(view->storage.serviceUsable());

        view->click(view->item(u"testConnection"_s));
        QQuickItem *result = view->item(u"connectionMessage"_s);
        QTRY_VERIFY(result->property("text").toString().startsWith(
            u"Connected to 127.0.0.1:%1 — model qwen2.5.gguf ("_s.arg(server.port())));
        for (const FixtureRequest &request : server.requests())
            QCOMPARE(request.method, QByteArray("GET"));

        view->click(view->item(u"providerService"_s));
        QVERIFY(!result->isVisible());
        QQuickItem *base = view->item(u"modelBaseField"_s);
        QVERIFY(base->isVisible());
        view->click(base);
        QTest::keyClick(view->window.get(), Qt::Key_End);
        type(view->window.get(), "x");
        QCOMPARE(view->storage.modelBase(), server.url("/v1").toString() + u"x"_s);
    }

    // Opening the window leaves a chosen model alone, whatever the hidden panels hold.
    void chosenModelKept()
    {
        FixtureServer server;
        QVERIFY(serveModels(server));
        const QString path = m_dir.filePath(u"s%1/Tessary.conf"_s.arg(++m_stores));
        View view(path, m_dir.filePath(u"autostart"_s), { { server.port(), u"llama.cpp"_s } });
        view.storage.setModelBase(server.url("/v1").toString());
        view.storage.setModel(u"qwen2.5.gguf"_s);
        view.storage.setProvider(StorageManager::Provider::LocalModel);
        view.load();
        QTRY_VERIFY(view.item(u"localModel1"_s) && view.item(u"localModel1"_s)->property("checked").toBool());
        QCOMPARE(view.storage.model(), u"qwen2.5.gguf"_s);
        view.click(view.item(u"providerService"_s));
        QCOMPARE(view.storage.model(), u"qwen2.5.gguf"_s);
    }

    // What a screen reader finds and does, through Qt's accessibility interfaces as the
    // accessibility bus calls them: each control named, and Press acting as a click.
    void screenReader_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("effect"); // what Press changes; empty: a field, nothing to press

        QTest::newRow("the service's key, hidden") << u"apiKeyField"_s << u"API key"_s << QString();
        QTest::newRow("the service's address")
            << u"apiBaseField"_s << u"Tessary service address"_s << QString();
        QTest::newRow("Show the key") << u"revealKey"_s << u"Show"_s << u"key shown"_s;
        QTest::newRow("a choice of model")
            << u"providerService"_s << u"An OpenAI-compatible service"_s << u"service chosen"_s;
        QTest::newRow("a switch") << u"autoCheck"_s << u"Check for updates automatically"_s
                                  << u"updates off"_s;
        QTest::newRow("Check now") << u"checkForUpdates"_s << u"Check now"_s << u"check asked"_s;
        QTest::newRow("Add sample") << u"addSample"_s << u"Add sample"_s << u"sample added"_s;
        QTest::newRow("Remove sample") << u"removeSample"_s << u"Remove sample 1"_s << u"sample removed"_s;
        QTest::newRow("Search again") << u"searchAgain"_s << u"Search again"_s << u"searching"_s;
        QTest::newRow("Test connection") << u"testConnection"_s << u"Test connection"_s << u"testing"_s;
        QTest::newRow("Done") << u"done"_s << u"Done"_s << u"closed"_s;
    }
    void screenReader()
    {
        QFETCH(QString, control);
        QFETCH(QString, name);
        QFETCH(QString, effect);
        QAccessible::setActive(true);
        auto view = makeView({ u"first"_s });
        if (control == u"searchAgain"_s)
            view->storage.setProvider(StorageManager::Provider::LocalModel);
        QSignalSpy checkAsked(&view->model, &SettingsModel::updateCheckRequested);

        QQuickItem *target = nullptr;
        QTRY_VERIFY((target = view->items(control).value(0)));
        QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(target);
        QVERIFY(accessible);
        QCOMPARE(accessible->text(QAccessible::Name), name);
        if (effect.isEmpty()) {
            QCOMPARE(accessible->role(), QAccessible::EditableText);
            return;
        }
        QTRY_VERIFY(view->model.chooser()->resultKind() != ModelChooser::Result::Working
            && !view->model.chooser()->searching());
        QVERIFY(accessible->actionInterface());
        QSignalSpy searched(view->model.chooser(), &ModelChooser::localChoicesChanged);
        accessible->actionInterface()->doAction(QAccessibleActionInterface::pressAction());

        if (effect == u"key shown"_s)
            QCOMPARE(view->item(u"apiKeyField"_s)->property("echoMode").toInt(), 0); // TextInput.Normal
        else if (effect == u"service chosen"_s)
            QCOMPARE(view->storage.provider(), StorageManager::Provider::ModelService);
        else if (effect == u"updates off"_s)
            QCOMPARE(view->storage.updateCheckEnabled(), false);
        else if (effect == u"check asked"_s)
            QCOMPARE(checkAsked.size(), 1);
        else if (effect == u"sample added"_s)
            QCOMPARE(view->storage.examples(), (QStringList { u"first"_s, QString() }));
        else if (effect == u"sample removed"_s)
            QCOMPARE(view->storage.examples(), QStringList());
        else if (effect == u"searching"_s)
            QTRY_VERIFY(!searched.isEmpty());
        else if (effect == u"testing"_s)
            QVERIFY(view->model.chooser()->resultKind() != ModelChooser::Result::None);
        else
            QTRY_VERIFY(!view->window->isVisible());
    }

    void closing_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("Done") << u"done"_s;
        QTest::newRow("Return outside an editor") << u"return"_s;
        QTest::newRow("Escape in a field") << u"escape"_s;
    }
    void closing()
    {
        QFETCH(QString, how);
        auto view = makeView({ u"x"_s });
        if (how == u"done"_s) {
            view->click(view->item(u"done"_s));
        } else if (how == u"escape"_s) {
            QMetaObject::invokeMethod(view->window.get(), "focusApiKey");
            QTest::keyClick(view->window.get(), Qt::Key_Escape);
        } else {
            // Return inside a sample is a line break, not Done.
            view->items(u"sampleEditor"_s).first()->forceActiveFocus();
            QTest::keyClick(view->window.get(), Qt::Key_Return);
            QVERIFY(view->window->isVisible());
            QCOMPARE(view->storage.examples(), QStringList { u"\nx"_s });
            view->item(u"keyHandler"_s)->forceActiveFocus();
            QTest::keyClick(view->window.get(), Qt::Key_Return);
        }
        QTRY_VERIFY(!view->window->isVisible());
    }
};

QTEST_MAIN(TestSettingsView)
#include "TestSettingsView.moc"
