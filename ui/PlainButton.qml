import QtQuick
import QtQuick.Controls.Basic

// A button that is only its text (and an icon, if given), for the quieter choices of a
// window. Tab reaches it like any button, so it shows a ring while the keyboard is on it,
// and Return presses it.
AbstractButton {
    id: button
    property color color: Theme.purple
    property int pixelSize: 12
    property url iconSource

    Accessible.name: text
    // Screen readers press through the accessibility bus; Qt's buttons ignore it unheard.
    Accessible.onPressAction: if (enabled) clicked()
    hoverEnabled: true
    opacity: enabled ? 1 : 0.4
    Keys.onReturnPressed: button.clicked()
    Keys.onEnterPressed: button.clicked()
    contentItem: Row {
        spacing: 4
        opacity: button.pressed ? 0.6 : 1
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
    // The ring stands clear of the text, so it does not crowd it.
    background: Item {
        Rectangle {
            anchors.fill: parent
            anchors.leftMargin: -6
            anchors.rightMargin: -6
            anchors.topMargin: -3
            anchors.bottomMargin: -3
            radius: 6
            color: "transparent"
            border.width: 2
            border.color: Theme.withAlpha(Theme.purple, 0.5)
            visible: button.visualFocus
        }
    }
    HoverHandler { cursorShape: Qt.PointingHandCursor }
}
