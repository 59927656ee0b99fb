import QtQuick
import QtQuick.Controls.impl as ControlsImpl

// One of our monochrome SVG icons, tinted: Icon { name: "xmark"; color: Theme.secondary }
ControlsImpl.IconImage {
    property string name
    property int size: 16

    source: name.length > 0 ? Qt.resolvedUrl("icons/" + name + ".svg") : ""
    sourceSize: Qt.size(size, size)
    width: size
    height: size
    fillMode: Image.PreserveAspectFit
    Accessible.ignored: true
}
