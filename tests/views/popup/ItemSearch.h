#pragma once

#include <QQuickItem>
#include <QString>

// The item of that objectName below root. Follows the visual tree: items a Repeater
// makes have no QObject parent, so findChild would miss them.
inline QQuickItem *findItem(QQuickItem *root, const QString &name)
{
    if (root->objectName() == name)
        return root;
    const auto children = root->childItems();
    for (QQuickItem *child : children) {
        if (QQuickItem *found = findItem(child, name))
            return found;
    }
    return nullptr;
}
