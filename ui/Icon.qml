import QtQuick
import QtQuick.Controls.impl as ControlsImpl

// One of our monochrome SVG icons, tinted: Icon { name: "xmark"; color: Theme.secondary }
// or any single-colour SVG by source.
Item {
    id: icon

    property string name
    property url source: name.length > 0 ? Qt.resolvedUrl("icons/" + name + ".svg") : ""
    property color color: Theme.primary
    property int size: 16

    implicitWidth: size
    implicitHeight: size
    Accessible.ignored: true

    ControlsImpl.IconImage {
        anchors.fill: parent
        source: icon.source
        sourceSize: Qt.size(icon.size, icon.size)
        color: icon.color
        fillMode: Image.PreserveAspectFit
    }
}
