#include "UndoNotice.h"

#include "QmlEngine.h"
#include "UndoNoticeModel.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcNotice, "tessary.popup.notice")

UndoNotice::UndoNotice(QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_model(std::make_unique<UndoNoticeModel>())
{
    connect(m_model.get(), &UndoNoticeModel::undoRequested, this, [this] {
        close();
        Q_EMIT undoRequested();
    });
    connect(m_model.get(), &UndoNoticeModel::dismissed, this, &UndoNotice::close);
}

UndoNotice::~UndoNotice() = default;

void UndoNotice::say(const QString &message, bool offersUndo, bool refused, const QRect &where)
{
    m_model->say(message, offersUndo, refused);
    if (!m_window) {
        QmlEngine::prepare(m_engine);
        QQmlComponent component(&m_engine, QUrl(u"qrc:/qt/qml/Tessary/Popup/UndoNotice.qml"_s));
        QObject *object
            = component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(m_model.get()) } });
        m_window.reset(qobject_cast<QQuickWindow *>(object));
        if (!m_window) {
            delete object;
            qCCritical(lcNotice).noquote() << "cannot build the notice:" << component.errorString();
            return;
        }
        QQmlEngine::setObjectOwnership(m_window.get(), QQmlEngine::CppOwnership);
        // Mapped with a user time of 0, which window managers read as "do not focus":
        // the keyboard stays in the window the text went into.
        m_window->setProperty("_q_showWithoutActivating", true);
        connect(m_window.get(), &QWindow::activeChanged, this, [this] {
            if (m_window->isActive())
                Q_EMIT keyboardTaken();
        });
    }
    QRect place = where;
    if (!place.isValid()) {
        const QScreen *screen = QGuiApplication::primaryScreen();
        place = screen ? screen->availableGeometry() : QRect(0, 0, 800, 600);
    }
    const QSize size(m_window->width(), m_window->height());
    m_window->setPosition(place.center() - QPoint(size.width() / 2, size.height() / 2));
    m_window->show();
}

void UndoNotice::close()
{
    if (m_window)
        m_window->hide();
}
