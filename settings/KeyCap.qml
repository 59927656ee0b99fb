import QtQuick
import Tessary.Ui

Rectangle {
    id: cap
    required property string key

    implicitWidth: label.implicitWidth + 16
    implicitHeight: label.implicitHeight + 8
    radius: 5
    color: Theme.quaternary
    border.width: 1
    border.color: Qt.rgba(Theme.secondary.r, Theme.secondary.g, Theme.secondary.b, 0.3)
    Accessible.role: Accessible.StaticText
    Accessible.name: key

    Text {
        id: label
        anchors.centerIn: parent
        text: cap.key
        font.family: "monospace"
        font.pixelSize: 12
        font.weight: Font.Medium
        color: Theme.primary
    }
}
