import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A button that is only its text, for the quieter choices of a page. Tab reaches it like
// any button, so it shows a ring while the keyboard is on it, and Return presses it.
AbstractButton {
    id: link
    property color color: Theme.secondary

    Accessible.name: text
    Keys.onReturnPressed: link.clicked()
    Keys.onEnterPressed: link.clicked()
    contentItem: Text {
        text: link.text
        font.pixelSize: 12
        color: link.color
        opacity: link.pressed ? 0.6 : 1
    }
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
            visible: link.visualFocus
        }
    }
}
