#include "QmlEngine.h"

#include <QQmlEngine>

QmlEngine::QmlEngine() = default;
QmlEngine::~QmlEngine() = default;

QQmlEngine &QmlEngine::get()
{
    if (!m_engine) {
        m_engine = std::make_unique<QQmlEngine>();
        prepare(*m_engine);
    }
    return *m_engine;
}

void QmlEngine::prepare(QQmlEngine &engine)
{
    const QString modules = QStringLiteral("qrc:/qt/qml");
    if (!engine.importPathList().contains(modules))
        engine.addImportPath(modules);
}
