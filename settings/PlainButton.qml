import QtQuick
import Tessary.Ui
import QtQuick.Controls.Basic

// A borderless button: its content is all the user sees.
AbstractButton {
    id: button
    property color color: Theme.purple
    property int pixelSize: 12
    property url iconSource

    Accessible.name: text
    hoverEnabled: true
    opacity: enabled ? (pressed ? 0.6 : 1) : 0.4
    contentItem: Row {
        spacing: 4
        Icon {
            anchors.verticalCenter: parent.verticalCenter
            visible: button.iconSource.toString() !== ""
            source: button.iconSource
            size: button.pixelSize
            color: button.color
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: button.text
            color: button.color
            font.pixelSize: button.pixelSize
        }
    }
    background: null
    HoverHandler { cursorShape: Qt.PointingHandCursor }
}
