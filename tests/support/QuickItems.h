#pragma once

#include <QQuickItem>
#include <QString>

// Items of a Qt Quick scene by objectName. Rows made by a Repeater are not QObject
// children of their window, so this walks the visual item tree instead.
namespace QuickItems {

inline void collect(QQuickItem *root, const QString &name, QList<QQuickItem *> &found)
{
    for (QQuickItem *child : root->childItems()) {
        if (child->objectName() == name)
            found.append(child);
        collect(child, name, found);
    }
}

inline QList<QQuickItem *> all(QQuickItem *root, const QString &name)
{
    QList<QQuickItem *> found;
    collect(root, name, found);
    return found;
}

} // namespace QuickItems
