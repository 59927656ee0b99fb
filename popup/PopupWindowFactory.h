#pragma once

#include <QObject>
#include <QQmlComponent>

#include <memory>

class PopupViewModel;
class QQmlEngine;
class QQuickWindow;

// Builds the popups' windows from one compiled component, and keeps the next window
// built ahead. Building a popup's QML is the largest part of the time from the shortcut
// to the popup on screen; built ahead, while nobody waits, the next popup only has to
// be handed its model.
//
// The window built ahead shows a stand-in model until it is handed out; it is never
// shown before that.
class PopupWindowFactory : public QObject
{
    Q_OBJECT

public:
    explicit PopupWindowFactory(QQmlEngine &engine, QObject *parent = nullptr);
    ~PopupWindowFactory() override;

    // A window showing `model`: the one built ahead when there is one, else a new one.
    // Null when the component cannot be built.
    std::unique_ptr<QQuickWindow> create(PopupViewModel *model);

    // Builds a window for the next create() once the event loop has nothing more urgent
    // to do: after `shownWindow` (the popup just opened) has drawn its first frame, or
    // right away when there is none.
    void prepareNext(QQuickWindow *shownWindow = nullptr);

    bool hasPreparedWindow() const { return bool(m_prepared); }

private:
    std::unique_ptr<QQuickWindow> build(PopupViewModel *model);
    void buildPrepared();

    QQmlComponent m_component;
    std::unique_ptr<PopupViewModel> m_standIn;
    std::unique_ptr<QQuickWindow> m_prepared;
    QMetaObject::Connection m_firstFrame;
};
