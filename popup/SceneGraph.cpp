#include "SceneGraph.h"

#include <QQuickWindow>
#include <QSGRendererInterface>

void SceneGraph::chooseRenderer()
{
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}
