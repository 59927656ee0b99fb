// Shows the popup in each of its looks, light and dark, and saves a picture of each:
//     popup-demo OUTPUT_DIR
// The service is played by a scripted rewriter, so every picture shows the same moment.
// Run with QT_SCALE_FACTOR set, the pictures are named for the scale (popup-done-light@2x.png).

#include "FailureAdvice.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "SceneGraph.h"
#include "SessionDesk.h"
#include "StorageManager.h"

#include <QDir>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

const QString original
    = u"hey so i looked at the numbers from last week and honestly i think we should push "
      u"the launch by a few days, the onboarding flow still has that bug where people get "
      u"stuck on step two and i don't want our first users to hit it. can we talk tomorrow?"_s;

const QString rewrite
    = u"I went through last week's numbers, and I think we should move the launch back a few "
      u"days. The onboarding flow still has the bug where people get stuck on step two, and I "
      u"don't want our first users running into it.\n\nCould we talk it over tomorrow morning?"_s;

QPalette darkPalette()
{
    QPalette p;
    p.setColor(QPalette::Window, QColor(0x2a, 0x2a, 0x2e));
    p.setColor(QPalette::WindowText, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x22));
    p.setColor(QPalette::Text, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3f));
    p.setColor(QPalette::ButtonText, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Highlight, QColor(0x8e, 0x4a, 0xc6));
    p.setColor(QPalette::HighlightedText, Qt::white);
    return p;
}

struct Scene
{
    QString name;
    QString text;
    std::function<void(FakeRewriter &, PopupViewModel &)> play;
    QList<Qt::Key> keys = {}; // typed once the rewrite has played
    bool showThinking = false; // the thinking section opened
    QString instruction = {}; // typed into the instruction field, and rewritten with
};

const QString thinking
    = u"They want it in their own voice: short sentences, direct, no greeting. Keep the point "
      u"about the step-two bug, since that is the reason for the delay, and end with the "
      u"question about tomorrow."_s;

QQuickItem *itemNamed(QQuickItem *root, const QString &name)
{
    if (root->objectName() == name)
        return root;
    for (QQuickItem *child : root->childItems()) {
        if (QQuickItem *found = itemNamed(child, name))
            return found;
    }
    return nullptr;
}

} // namespace

int main(int argc, char *argv[])
{
    SceneGraph::chooseRenderer(); // as the program draws
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: popup-demo OUTPUT_DIR\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    QDir().mkpath(out.absolutePath());

    const QList<Scene> scenes {
        { u"loading"_s, original, [](FakeRewriter &, PopupViewModel &) {} },
        { u"streaming"_s, original,
            [](FakeRewriter &r, PopupViewModel &) { r.token(rewrite.first(rewrite.indexOf(u"bug"_s))); } },
        { u"done"_s, original,
            [](FakeRewriter &r, PopupViewModel &) {
                r.token(rewrite);
                r.complete();
            } },
        { u"tone"_s, original,
            [](FakeRewriter &r, PopupViewModel &vm) {
                vm.selectTone(u"casual"_s);
                r.token(
                    u"Looked at last week's numbers – I think we should push the launch a few days. "
                    u"Onboarding still has that step-two bug and I don't want our first users stuck on it. "
                    u"Talk tomorrow?"_s);
                r.complete();
            } },
        // The user's own words instead of a tone, with saved ones to pick from.
        { u"instruction"_s, original,
            [](FakeRewriter &r, PopupViewModel &) {
                r.token(u"Let's push the launch a few days: the step-two onboarding bug is still there. "
                        u"Can we talk tomorrow?"_s);
                r.complete();
            },
            {}, false, u"shorter, three sentences at most"_s },
        { u"error"_s, original,
            [](FakeRewriter &r, PopupViewModel &) {
                r.token(rewrite.first(40));
                // What the program says when the service on this computer is not running.
                r.error(FailureAdvice::forRewrite(
                    { StorageManager::Provider::TessaryService, QUrl(u"http://127.0.0.1:8787/api/v1"_s), {} },
                    Failure::of(Failure::Kind::Unreachable, u"Could not connect to the server."_s)));
            } },
        { u"no-text"_s, QString(), [](FakeRewriter &, PopupViewModel &) {} },
        // A reasoning model: its thinking held apart from the rewrite, opened to read.
        { u"thinking"_s, original, [](FakeRewriter &r, PopupViewModel &) { r.reasoning(thinking); }, {},
            true },
        { u"thought"_s, original,
            [](FakeRewriter &r, PopupViewModel &) {
                r.reasoning(thinking);
                r.token(rewrite);
                r.complete();
            } },
        // Show changes on a rewrite too long to compare: plain, under a line that says so.
        { u"too-long-to-mark"_s, original,
            [](FakeRewriter &r, PopupViewModel &vm) {
                vm.setShowChanges(true);
                QStringList paragraphs(120, rewrite);
                r.token(paragraphs.join(u"\n\n"_s));
                r.complete();
            } },
        // The keyboard on the next tone, its ring showing.
        { u"keyboard"_s, original,
            [](FakeRewriter &r, PopupViewModel &) {
                r.token(rewrite);
                r.complete();
            },
            { Qt::Key_Tab } },
    };

    const QPalette light = QGuiApplication::palette();
    int failures = 0;
    for (const bool dark : { false, true }) {
        QGuiApplication::setPalette(dark ? darkPalette() : light);
        QQmlEngine engine;
        QTemporaryDir home;
        StorageManager settings(home.filePath(u"Tessary.conf"_s), u"http://127.0.0.1:8787/api/v1"_s);
        settings.setSavedInstructions({ u"fix grammar only"_s, u"in German"_s, u"shorter"_s });
        for (const Scene &scene : scenes) {
            SessionDesk desk;
            desk.settings = &settings;
            const auto session = desk.session(scene.text);
            FakeRewriter &rewriter = desk.rewriter;
            PopupWindowController popup(*session, engine);
            popup.showWindow();
            if (!QTest::qWaitForWindowExposed(popup.window())) {
                std::fprintf(stderr, "popup-demo: %s never came on screen\n", qPrintable(scene.name));
                ++failures;
                continue;
            }
            if (!scene.instruction.isEmpty()) {
                if (QQuickItem *field = itemNamed(popup.window()->contentItem(), u"instructionField"_s))
                    field->setProperty("text", scene.instruction);
                popup.viewModel()->useInstruction(scene.instruction);
            }
            scene.play(rewriter, *popup.viewModel());
            popup.window()->requestActivate();
            if (!scene.keys.isEmpty() && !QTest::qWaitForWindowActive(popup.window()))
                std::fprintf(stderr, "popup-demo: %s never took the keyboard\n", qPrintable(scene.name));
            for (const Qt::Key key : scene.keys)
                QTest::keyClick(popup.window(), key);
            if (auto *toggle = popup.window()->findChild<QObject *>(u"thinkingToggle"_s);
                toggle && scene.showThinking)
                QMetaObject::invokeMethod(toggle, "clicked");
            QTest::qWait(300); // let the spinner turn and the text settle into its frame
            const qreal scale = popup.window()->devicePixelRatio();
            const QString suffix = scale == 1 ? QString() : u"@%1x"_s.arg(scale);
            const QString file
                = out.filePath(u"popup-%1-%2%3.png"_s.arg(scene.name, dark ? u"dark"_s : u"light"_s, suffix));
            if (!popup.window()->grabWindow().save(file)) {
                std::fprintf(stderr, "popup-demo: cannot write %s\n", qPrintable(file));
                ++failures;
            } else {
                std::printf("%s\n", qPrintable(file));
            }
            popup.close();
        }
    }
    return failures == 0 ? 0 : 1;
}
