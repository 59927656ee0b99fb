import QtQuick
import Tessary.Ui

// A capsule naming one feature; grows with its label and keeps round ends.
Rectangle {
    id: pill
    required property url iconSource
    required property string label

    implicitWidth: row.implicitWidth + 20
    implicitHeight: row.implicitHeight + 10
    radius: height / 2
    color: Theme.withAlpha(Theme.purple, 0.08)
    border.width: 1
    border.color: Theme.withAlpha(Theme.purple, 0.2)
    Accessible.role: Accessible.StaticText
    Accessible.name: label

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 5
        Icon {
            anchors.verticalCenter: parent.verticalCenter
            source: pill.iconSource
            size: 11
            color: Theme.purple
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: pill.label
            color: Theme.primary
            font.pixelSize: 12
            font.weight: Font.Medium
        }
    }
}
