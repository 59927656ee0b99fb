// tessary-gallery OUTDIR: renders the settings window (with an update known), every
// onboarding page, the History window, a rewrite with its changes marked and the notice
// after a Replace, light and dark, into PNG files for the documentation and the demo.

#include "FixtureServer.h"
#include "HistoryListModel.h"
#include "HistoryStore.h"
#include "OnboardingModel.h"
#include "Rewriter.h"
#include "SettingsModel.h"
#include "StorageManager.h"
#include "UndoNoticeModel.h"

#include <QDir>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <array>
#include <cstdio>
#include <memory>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_SettingsPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_OnboardingPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_HistoryPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_PopupPlugin)

using namespace Qt::StringLiterals;

namespace {

class IdleRewriter : public Rewriter
{
public:
    std::shared_ptr<RewriteRequest> humanize(
        const QString &, const QString &, const QString &, RewriteCallbacks) override
    {
        return {};
    }
};

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x26, 0x26, 0x28), text(0xec, 0xec, 0xee), base(0x1d, 0x1d, 0x1f);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3c));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Mid, QColor(0x50, 0x50, 0x54));
    p.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    p.setColor(QPalette::Light, QColor(0x5a, 0x5a, 0x5e));
    p.setColor(QPalette::Midlight, QColor(0x48, 0x48, 0x4c));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Highlight, QColor(0x8e, 0x44, 0xc8));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::PlaceholderText, QColor(0x8a, 0x8a, 0x8e));
    return p;
}

std::unique_ptr<QQuickWindow> load(QQmlEngine &engine, const QString &url, const QVariantMap &properties)
{
    QQmlComponent component(&engine, QUrl(url));
    if (component.isError()) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        std::exit(1);
    }
    std::unique_ptr<QObject> object(component.createWithInitialProperties(properties));
    auto *window = qobject_cast<QQuickWindow *>(object.get());
    if (!window) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        std::exit(1);
    }
    object.release();
    return std::unique_ptr<QQuickWindow>(window);
}

void shoot(QQuickWindow &window, const QString &path, int settleMs)
{
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        std::fprintf(stderr, "window not exposed\n");
    QTest::qWait(settleMs);
    if (!window.grabWindow().save(path))
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
    else
        std::printf("%s\n", qPrintable(path));
}

// A rewrite with what it changed marked, as the popup shows it with Show changes on.
void shootChanges(QQmlEngine &engine, const QString &path)
{
    QQmlComponent component(&engine);
    component.setData(R"(
        import QtQuick
        import Tessary.Ui
        import Tessary.Popup
        Window {
            width: 360; height: 190; color: Theme.background
            DiffText {
                anchors.fill: parent; anchors.margins: 16
                original: "hey, the meeting got moved to thurs, can u let the team know? thx"
                result: "Hi — the meeting has moved to Thursday. Could you let the team know? Thanks!"
            }
        })",
        QUrl(u"qrc:/gallery/changes.qml"_s));
    std::unique_ptr<QQuickWindow> window(qobject_cast<QQuickWindow *>(component.create()));
    if (!window) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        return;
    }
    shoot(*window, path, 500);
}

// The notice after a Replace, where the popup was: Undo offered, and an Undo refused.
void shootUndoNotice(QQmlEngine &engine, const QString &offeredPath, const QString &refusedPath)
{
    UndoNoticeModel model;
    model.say(u"Replaced."_s, true);
    auto window = load(engine, u"qrc:/qt/qml/Tessary/Popup/UndoNotice.qml"_s,
        { { u"model"_s, QVariant::fromValue(&model) } });
    shoot(*window, offeredPath, 300);
    window->close();
    model.say(u"The text in Mousepad has changed since the rewrite: the original is on the clipboard."_s,
        false, true);
    shoot(*window, refusedPath, 300);
    window->close();
}

// The History window with a few rewrites of a morning.
void shootHistory(QQmlEngine &engine, const QString &dir, const QString &path)
{
    HistoryStore store(dir + u"/history.sqlite"_s);
    QSignalSpy added(&store, &HistoryStore::added);
    const QList<std::array<QString, 4>> rewrites {
        { u"pls send the report by fri"_s, u"Could you send the report by Friday, please?"_s,
            u"professional"_s, u"Thunderbird"_s },
        { u"the meeting moved to 3"_s, u"Heads up: the meeting is now at three."_s, u"casual"_s, u"Slack"_s },
        { u"thx for the notes, will fix"_s, u"Thanks for the notes — I'll fix those today."_s, u"warm"_s,
            u"Mousepad"_s },
    };
    int minutes = 90;
    for (const auto &[original, result, tone, application] : rewrites) {
        store.add({ 0, original, result, tone, application,
            QDateTime::currentDateTimeUtc().addSecs(-60 * minutes) });
        minutes -= 35;
    }
    while (added.size() < rewrites.size() && added.wait(5000)) { }
    HistoryListModel model(store);
    auto window = load(engine, u"qrc:/qt/qml/Tessary/History/HistoryView.qml"_s,
        { { u"model"_s, QVariant::fromValue(&model) } });
    window->resize(520, 440);
    shoot(*window, path, 600);
    window->close();
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: tessary-gallery OUTDIR\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    // A stand-in for Ollama, so the language model choices have models to show.
    FixtureServer ollama;
    if (!ollama.listen(11434) && !ollama.listen())
        std::fprintf(stderr, "no port for the stand-in model server\n");
    FixtureReply tags;
    tags.headers = { { "Content-Type", "application/json" } };
    tags.body = R"({"models":[{"name":"llama3.1:8b"},{"name":"qwen2.5:7b"},{"name":"mistral:7b"}]})";
    ollama.route("/api/tags", tags);
    const QList<ModelProbe::Candidate> localServers { { ollama.port(), u"Ollama"_s } };
    QDir().mkpath(out.absolutePath());
    const QPalette light = QGuiApplication::palette();

    for (const bool dark : { false, true }) {
        QGuiApplication::setPalette(dark ? darkPalette() : light);
        const QString scheme = dark ? u"dark"_s : u"light"_s;
        QTemporaryDir home;
        StorageManager storage(home.filePath(u"Tessary.conf"_s), u"http://127.0.0.1:8787/api/v1"_s);
        storage.setApiKey(u"tsk-demo-4f9a2c"_s);
        storage.setUpdateCheckEnabled(true);
        storage.setLastVersionCheck(QDateTime::currentDateTime().addSecs(-3600));
        storage.setExamples({ u"Hey all — quick one: the launch moves to Thursday. Nothing else changes, "
                              u"so keep going as you were."_s,
            u"Thanks for the notes! I took most of them; the intro stays long because it sets up "
            u"the whole argument."_s });
        QQmlEngine engine;
        engine.addImportPath(u"qrc:/qt/qml"_s);

        SettingsModel settings(storage, home.filePath(u"autostart"_s), [](const QUrl &) { return true; }, {});
        settings.setUpdateState(false, true,
            SettingsModel::Release { u"1.4.0"_s,
                u"Faster rewrites, a warmer tone and fixes for pasting into terminals."_s,
                u"https://tessary.app/download"_s });
        auto settingsWindow = load(engine, u"qrc:/qt/qml/Tessary/Settings/SettingsView.qml"_s,
            { { u"model"_s, QVariant::fromValue(&settings) } });
        shoot(*settingsWindow, out.filePath(u"settings-%1.png"_s.arg(scheme)), 300);
        // Scrolled to the end: the update box, the toggles and the shortcut.
        if (auto *scroll = settingsWindow->findChild<QQuickItem *>(u"scroll"_s)) {
            auto *flickable = scroll->property("contentItem").value<QQuickItem *>();
            flickable->setProperty(
                "contentY", flickable->property("contentHeight").toReal() - flickable->height());
        }
        shoot(*settingsWindow, out.filePath(u"settings-updates-%1.png"_s.arg(scheme)), 300);
        settingsWindow->close();

        // The Language Model section with a model on this computer chosen and tested.
        storage.setModelBase(ollama.url("/v1").toString());
        storage.setModel(u"qwen2.5:7b"_s);
        storage.setProvider(StorageManager::Provider::LocalModel);
        SettingsModel modelSettings(
            storage, home.filePath(u"autostart"_s), [](const QUrl &) { return true; }, localServers);
        auto modelWindow = load(engine, u"qrc:/qt/qml/Tessary/Settings/SettingsView.qml"_s,
            { { u"model"_s, QVariant::fromValue(&modelSettings) } });
        modelSettings.chooser()->testConnection();
        shoot(*modelWindow, out.filePath(u"settings-model-%1.png"_s.arg(scheme)), 900);
        modelWindow->close();
        storage.setProvider(StorageManager::Provider::TessaryService);

        shootChanges(engine, out.filePath(u"changes-%1.png"_s.arg(scheme)));
        shootUndoNotice(engine, out.filePath(u"undo-%1.png"_s.arg(scheme)),
            out.filePath(u"undo-refused-%1.png"_s.arg(scheme)));
        shootHistory(engine, home.path(), out.filePath(u"history-%1.png"_s.arg(scheme)));

        // The last page differs while no key is stored: show both.
        for (const bool withKey : { true, false }) {
            storage.setApiKey(withKey ? u"tsk-demo-4f9a2c"_s : QString());
            OnboardingModel onboarding(storage, OnboardingModel::defaultCompletionDelay, localServers);
            auto window = load(engine, u"qrc:/qt/qml/Tessary/Onboarding/OnboardingView.qml"_s,
                { { u"model"_s, QVariant::fromValue(&onboarding) } });
            if (withKey) {
                shoot(*window, out.filePath(u"onboarding-1-welcome-%1.png"_s.arg(scheme)), 900);
                onboarding.advance();
                onboarding.setSampleText(
                    u"Hey — quick note before I forget: the client meeting got pushed to Friday, "
                    u"so we have two more days for the deck."_s);
                shoot(*window, out.filePath(u"onboarding-2-sample-%1.png"_s.arg(scheme)), 1200);
            } else {
                onboarding.advance();
                onboarding.advance();
                shoot(*window, out.filePath(u"onboarding-3-model-%1.png"_s.arg(scheme)), 1500);
                // The last page as it looks when no usable model was chosen in the end.
                storage.setProvider(StorageManager::Provider::TessaryService);
            }
            onboarding.finish();
            shoot(*window,
                out.filePath(u"onboarding-3-done%1-%2.png"_s.arg(withKey ? u""_s : u"-no-key"_s, scheme)),
                1200);
            window->close();
        }
    }
    return 0;
}
