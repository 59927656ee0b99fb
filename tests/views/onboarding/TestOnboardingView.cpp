// Faults: onboarding deaf to mouse or keys, Tab caught in the sample field or landing on the page
// sliding away, Finish usable while blank, no model offered or picked, a pick lost to a new search,
// a wrong hover colour, no hint when the service is not usable, "Set up later" or a close keeping
// a pick, a close storing the sample or finishing the flow, a button deaf to a screen reader's Press.
#include "FakeDesktopShortcut.h"
#include "OnboardingModel.h"
#include "QuickItems.h"
#include "Replies.h"
#include "StorageManager.h"

#include <QAccessible>
#include <QFile>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_OnboardingPlugin)

using namespace Qt::StringLiterals;

class TestOnboardingView : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    FixtureServer m_modelServer; // a local model server, as llama.cpp's would answer
    std::unique_ptr<StorageManager> m_storage;
    std::unique_ptr<OnboardingModel> m_model;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;

    // The item of that name on the page being shown (a leaving page may still exist).
    QQuickItem *item(const QString &name) const
    {
        const QList<QQuickItem *> found = QuickItems::all(m_window->contentItem(), name);
        for (QQuickItem *candidate : found) {
            if (candidate->isVisible() && candidate->opacity() > 0
                && candidate->mapToScene(QPointF()).x() >= 0)
                return candidate;
        }
        return found.value(0);
    }
    // Clicks once the page carrying the item has slid fully into the window.
    bool click(const QString &name) const
    {
        QQuickItem *target = nullptr;
        const bool settled = QTest::qWaitFor([&] {
            target = item(name);
            if (!target)
                return false;
            const QRectF area = target->mapRectToScene(QRectF(0, 0, target->width(), target->height()));
            return QRectF(QPointF(), m_window->size()).contains(area);
        });
        if (!settled)
            return false;
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(m_window.get(), Qt::LeftButton, {}, centre.toPoint());
        return true;
    }

    // Presses, as a screen reader does through the accessibility bus, the enabled control of
    // that accessible name on the page being shown (a model by its name).
    bool pressNamed(const QString &name) const
    {
        QAccessibleInterface *found = nullptr;
        const bool there = QTest::qWaitFor([&] {
            QList<QQuickItem *> below { m_window->contentItem() };
            while (!below.isEmpty() && !found) {
                QQuickItem *next = below.takeFirst();
                below.append(next->childItems());
                if (!next->isVisible() || !next->isEnabled() || next->mapToScene(QPointF()).x() < 0)
                    continue;
                QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(next);
                const QString spoken = accessible ? accessible->text(QAccessible::Name) : QString();
                // A model's row goes on with the server that runs it.
                if ((spoken == name || spoken.startsWith(name + u" — "_s)) && accessible->actionInterface()
                    && !accessible->state().disabled)
                    found = accessible;
            }
            return found != nullptr;
        });
        if (there)
            found->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        return there;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_modelServer.listen());
        m_modelServer.route("/v1/models",
            jsonReply(200, R"({"object":"list","data":[{"id":"phi-3.gguf"},{"id":"qwen2.5.gguf"}]})"));
    }
    void init()
    {
        QFile::remove(m_dir.filePath(u"Tessary.conf"_s));
        m_storage = std::make_unique<StorageManager>(m_dir.filePath(u"Tessary.conf"_s), QString());
        m_storage->setExamples({});
        m_model = std::make_unique<OnboardingModel>(*m_storage, std::chrono::milliseconds(50),
            QList<ModelProbe::Candidate> { { m_modelServer.port(), u"llama.cpp"_s } });
        m_engine.addImportPath(u"qrc:/qt/qml"_s);
        QQmlComponent component(&m_engine, QUrl(u"qrc:/qt/qml/Tessary/Onboarding/OnboardingView.qml"_s));
        m_window.reset(qobject_cast<QQuickWindow *>(
            component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(m_model.get()) } })));
        QVERIFY2(m_window, qPrintable(component.errorString()));
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }
    void cleanup()
    {
        m_window.reset();
        m_model.reset();
        m_storage.reset();
    }

    void throughTheFlow_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("modelButton");
        QTest::newRow("Finish setup twice") << u"finishSetupButton"_s << u"finishModelButton"_s;
        QTest::newRow("Skip for now, Set up later") << u"skip"_s << u"setUpLater"_s;
        // No button: the window manager closes the window.
        QTest::newRow("Skip for now, close") << u"skip"_s << QString();
    }
    void throughTheFlow()
    {
        QFETCH(QString, button);
        QFETCH(QString, modelButton);
        // A hosted service half set up (no model yet): "later" must leave it as it was.
        m_storage->setProvider(StorageManager::Provider::ModelService);
        m_storage->setModelBase(u"https://models.example/v1"_s);
        m_storage->setModelKey(u"sk-half"_s);
        QCOMPARE(m_window->size(), QSize(640, 480));
        QCOMPARE(item(u"stepCounter"_s)->property("text").toString(), u"1 of 3"_s);

        QVERIFY(click(u"getStartedButton"_s));
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::AddSample);
        QTRY_COMPARE(item(u"stepCounter"_s)->property("text").toString(), u"2 of 3"_s);

        // Blank text: Finish setup does not react.
        QTRY_VERIFY(item(u"sampleEditor"_s) && item(u"finishSetupButton"_s)->opacity() > 0.99);
        item(u"sampleEditor"_s)->forceActiveFocus();
        QTest::keyClick(m_window.get(), Qt::Key_Space);
        QTest::keyClick(m_window.get(), Qt::Key_Space);
        QVERIFY(!item(u"finishSetupButton"_s)->isEnabled());
        QVERIFY(click(u"finishSetupButton"_s));
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::AddSample);

        for (const char c : QByteArray("Hi"))
            QTest::keyClick(m_window.get(), c);
        QCOMPARE(m_model->sampleText(), u"  Hi"_s);
        QVERIFY(item(u"finishSetupButton"_s)->isEnabled());

        QVERIFY(click(button));
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::ChooseModel);
        QTRY_COMPARE(item(u"stepCounter"_s)->property("text").toString(), u"3 of 3"_s);

        // The models of the server on this computer are offered; a click picks one.
        QVERIFY(click(u"localModel1"_s));
        QCOMPARE(m_storage->model(), u"qwen2.5.gguf"_s);
        QCOMPARE(m_storage->provider(), StorageManager::Provider::LocalModel);
        // Searching again keeps the pick.
        QVERIFY(click(u"searchAgain"_s));
        QVERIFY(m_model->chooser()->searching());
        QTRY_VERIFY(!m_model->chooser()->searching());
        QCOMPARE(m_storage->model(), u"qwen2.5.gguf"_s);
        QSignalSpy completed(m_model.get(), &OnboardingModel::completed);
        const bool closed = modelButton.isEmpty();
        QVERIFY(closed ? m_window->close() : click(modelButton));
        // A close stores nothing and finishes nothing: the welcome comes back at the next start.
        QCOMPARE(m_model->currentStep(),
            closed ? OnboardingModel::Step::ChooseModel : OnboardingModel::Step::Done);
        QCOMPARE(m_storage->onboardingFinished(), !closed);
        const bool later = modelButton != u"finishModelButton"_s;
        QCOMPARE(m_storage->provider(),
            later ? StorageManager::Provider::ModelService : StorageManager::Provider::LocalModel);
        QCOMPARE(m_storage->model(), later ? QString() : u"qwen2.5.gguf"_s);
        QCOMPARE(m_storage->modelKey(), later ? u"sk-half"_s : QString());
        QCOMPARE(m_storage->examples(), closed ? QStringList() : QStringList { u"  Hi"_s });
        QCOMPARE(m_model->sampleText(), u"  Hi"_s); // still there, should the window show again
        QVERIFY(closed || completed.wait(5000));
    }

    // Without a mouse: Return on the welcome page, the sample typed at once, then either the
    // shortcuts (Ctrl+Return, the arrow keys, Return) or Tab to the buttons and Return.
    void keyboardOnly_data()
    {
        QTest::addColumn<QList<QKeySequence>>("sampleKeys");
        QTest::addColumn<QList<QKeySequence>>("modelKeys");
        QTest::addColumn<QString>("model");
        const QKeySequence tab(Qt::Key_Tab), enter(Qt::Key_Return);
        QTest::newRow("shortcuts") << QList { QKeySequence(Qt::CTRL | Qt::Key_Return) }
                                   << QList { QKeySequence(Qt::Key_Down), enter } << u"qwen2.5.gguf"_s;
        QTest::newRow("Tab to Continue, to Set up later")
            << QList { tab, tab, enter } << QList { tab, tab, enter } << QString();
    }
    void keyboardOnly()
    {
        QFETCH(QList<QKeySequence>, sampleKeys);
        QFETCH(QList<QKeySequence>, modelKeys);
        QFETCH(QString, model);
        m_window->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        QTRY_VERIFY(item(u"getStartedButton"_s) && item(u"getStartedButton"_s)->hasActiveFocus());
        QTest::keyClick(m_window.get(), Qt::Key_Return);
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::AddSample);

        QTRY_VERIFY(item(u"sampleEditor"_s) && item(u"sampleEditor"_s)->hasActiveFocus());
        QTest::keyClick(m_window.get(), Qt::Key_Return, Qt::ControlModifier); // nothing to keep yet
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::AddSample);
        for (const char c : QByteArray("Hi"))
            QTest::keyClick(m_window.get(), c);
        for (const QKeySequence &keys : sampleKeys)
            QTest::keySequence(m_window.get(), keys);
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::ChooseModel);

        QTRY_VERIFY(item(u"localModels"_s) && item(u"localModels"_s)->hasActiveFocus());
        QTRY_COMPARE(m_storage->model(), u"phi-3.gguf"_s); // the first, until another is picked
        for (const QKeySequence &keys : modelKeys)
            QTest::keySequence(m_window.get(), keys);
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::Done);
        QCOMPARE(m_storage->examples(), QStringList { u"Hi"_s });
        QCOMPARE(m_storage->model(), model);
        QCOMPARE(m_storage->modelBase(), model.isEmpty() ? QString() : m_modelServer.url("/v1").toString());
        // With a model chosen, the last page asks for nothing more.
        QTRY_VERIFY(item(u"apiKeyHint"_s));
        QCOMPARE(item(u"apiKeyHint"_s)->isVisible(), model.isEmpty());
    }

    // The page sliding away leaves the screen once it has faded, not when its spring has
    // settled: until then a screen reader finds its buttons, a disabled "Finish setup" among
    // them, and Qt does not tell it they are disabled.
    void aFadedPageLeavesTheScreen()
    {
        QObject *pages = m_window->findChild<QObject *>(u"pages"_s);
        QVERIFY(pages);
        QVERIFY(click(u"getStartedButton"_s));
        QPointer<QQuickItem> leaving;
        QTRY_VERIFY((leaving = pages->property("leaving").value<QQuickItem *>()));
        QTRY_VERIFY(!leaving || !leaving->isVisible());
        QVERIFY2(leaving, "the page went only when its spring settled");
        QVERIFY(leaving->opacity() < 0.05);
    }

    // A screen reader's Press on every button of the way acts as a click, to the end.
    void screenReader_data()
    {
        QTest::addColumn<QStringList>("presses"); // accessible names; "+sample" types one
        QTest::addColumn<QString>("model");
        QTest::newRow("Skip for now, Set up later")
            << QStringList { u"Get started"_s, u"Skip for now"_s, u"Set up later"_s } << QString();
        QTest::newRow("a sample, a model picked") << QStringList { u"Get started"_s, u"+sample"_s,
            u"Continue"_s, u"qwen2.5.gguf"_s, u"Finish setup"_s }
                                                  << u"qwen2.5.gguf"_s;
        QTest::newRow("the first model found")
            << QStringList { u"Get started"_s, u"Skip for now"_s, u"Finish setup"_s } << u"phi-3.gguf"_s;
        QTest::newRow("Search again, then the first model") << QStringList { u"Get started"_s,
            u"Skip for now"_s, u"Search again"_s, u"phi-3.gguf"_s, u"Finish setup"_s }
                                                            << u"phi-3.gguf"_s;
    }
    void screenReader()
    {
        QFETCH(QStringList, presses);
        QFETCH(QString, model);
        QAccessible::setActive(true);
        for (const QString &name : presses) {
            if (name == u"+sample"_s) {
                m_model->setSampleText(u"Hi"_s);
                continue;
            }
            if (name == u"Search again"_s || name.endsWith(u".gguf"_s) || name == u"Finish setup"_s)
                QTRY_VERIFY(!m_model->chooser()->searching());
            QVERIFY2(pressNamed(name), qPrintable(name));
            if (name == u"Search again"_s)
                QVERIFY(m_model->chooser()->searching());
            if (name.endsWith(u".gguf"_s))
                QCOMPARE(m_storage->model(), name);
        }
        QCOMPARE(m_model->currentStep(), OnboardingModel::Step::Done);
        QVERIFY(m_storage->onboardingFinished());
        QCOMPARE(m_storage->model(), model);
    }

    // Where Ctrl+Alt+H is still to be bound, the last page starts with the keyboard on the
    // button that binds it (or on Done where the desktop cannot take it), ring showing, and
    // Return presses it.
    void lastPageKeyboard_data()
    {
        QTest::addColumn<bool>("addable");
        QTest::addColumn<QString>("focused");
        QTest::newRow("the desktop takes the shortcut") << true << u"addShortcut"_s;
        QTest::newRow("the user binds it") << false << u"leaveButton"_s;
    }
    void lastPageKeyboard()
    {
        QFETCH(bool, addable);
        QFETCH(QString, focused);
        FakeDesktopShortcut shortcut;
        shortcut.addable = addable;
        m_window.reset();
        m_model = std::make_unique<OnboardingModel>(*m_storage, std::chrono::milliseconds(50),
            QList<ModelProbe::Candidate> { { m_modelServer.port(), u"llama.cpp"_s } }, &shortcut);
        QQmlComponent component(&m_engine, QUrl(u"qrc:/qt/qml/Tessary/Onboarding/OnboardingView.qml"_s));
        m_window.reset(qobject_cast<QQuickWindow *>(
            component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(m_model.get()) } })));
        QVERIFY2(m_window, qPrintable(component.errorString()));
        m_window->show();
        m_window->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));

        m_model->advance();
        m_model->finish();
        QTRY_VERIFY(m_window->activeFocusItem());
        QTRY_COMPARE(m_window->activeFocusItem()->objectName(), focused);
        QVERIFY(m_window->activeFocusItem()->property("visualFocus").toBool());
        QSignalSpy completed(m_model.get(), &OnboardingModel::completed);
        QTest::keyClick(m_window.get(), Qt::Key_Return);
        QCOMPARE(shortcut.adds, addable ? 1 : 0);
        QCOMPARE(completed.size(), addable ? 0 : 1);
        m_window.reset();
    }

    // The pointer rests on "Finish setup" while it is disabled: it stays the faint
    // purple, and turns indigo as soon as text makes it usable. Finished then, with no
    // model chosen, the last page asks for one.
    void primaryButtonHover()
    {
        m_model->advance();
        QQuickItem *button = nullptr;
        QVERIFY(QTest::qWaitFor([&] {
            button = item(u"finishSetupButton"_s);
            return button && button->mapToScene(QPointF()).x() + button->width() <= m_window->width();
        }));
        // The page's own entrance may still move the button away from under the pointer.
        const auto hovered = [&] {
            QTest::mouseMove(m_window.get(),
                button->mapToScene(QPointF(button->width() / 2, button->height() / 2)).toPoint());
            return button->parentItem()->property("hover").toBool();
        };
        auto *background = button->property("background").value<QQuickItem *>();
        QVERIFY(background);
        QQmlComponent colours(&m_engine);
        colours.setData(
            "import QtQuick\nimport Tessary.Ui\n"
            "QtObject { property color purple: Theme.purple; property color indigo: Theme.indigo }",
            QUrl());
        std::unique_ptr<QObject> theme(colours.create());
        QVERIFY2(theme, qPrintable(colours.errorString()));
        const QColor purple = theme->property("purple").value<QColor>();
        const QColor indigo = theme->property("indigo").value<QColor>();

        QTRY_VERIFY(hovered());
        QColor faint = purple;
        faint.setAlphaF(0.35f);
        QTRY_COMPARE(background->property("color").value<QColor>().rgba(), faint.rgba());

        m_model->setSampleText(u"words"_s);
        QTRY_COMPARE(background->property("color").value<QColor>().rgb(), indigo.rgb());
        QCOMPARE(background->property("color").value<QColor>().alpha(), 255);

        m_model->finish();
        QTRY_VERIFY(item(u"apiKeyHint"_s));
        QVERIFY(item(u"apiKeyHint"_s)->isVisible());
    }
};

QTEST_MAIN(TestOnboardingView)
#include "TestOnboardingView.moc"
