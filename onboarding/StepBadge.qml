import QtQuick
import Tessary.Ui

// The numbered caption above a page's title: "01  TEACH YOUR STYLE".
Row {
    id: badge
    required property string number
    required property string label

    spacing: 8

    Rectangle {
        anchors.verticalCenter: parent.verticalCenter
        width: numberText.implicitWidth + 14
        height: numberText.implicitHeight + 6
        radius: 5
        color: Theme.purple
        Text {
            id: numberText
            anchors.centerIn: parent
            text: badge.number
            color: "white"
            font.family: "monospace"
            font.pixelSize: 10
            font.bold: true
        }
    }
    SectionLabel {
        anchors.verticalCenter: parent.verticalCenter
        text: badge.label
    }
}
