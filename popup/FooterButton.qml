import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A footer button: its label on a soft grey face that darkens a little under the
// pointer. It is as wide as its label at least; Space or Return presses it.
Button {
    id: button

    property color faceColor: Theme.quaternary
    property real faceOpacity: down ? 1 : hovered && enabled ? 0.8 : 0.5
    property color labelColor: Theme.primary
    property int labelSize: 12
    property int labelWeight: Font.Medium
    property bool checkmark: false // a green check before the label

    padding: 0
    leftPadding: 10
    rightPadding: 10
    topPadding: 8
    bottomPadding: 8
    hoverEnabled: true
    // The keyboard reaches it; a click leaves the keyboard where it was.
    focusPolicy: Qt.TabFocus
    opacity: enabled ? 1 : 0.4
    Accessible.name: text
    // Screen readers press through the accessibility bus.
    Accessible.onPressAction: if (enabled) clicked()
    Keys.onPressed: event => {
        if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter) && event.modifiers === Qt.NoModifier) {
            event.accepted = true;
            if (button.enabled)
                button.clicked();
        }
    }

    contentItem: Item {
        implicitWidth: face.implicitWidth
        implicitHeight: face.implicitHeight

        Row {
            id: face
            anchors.centerIn: parent
            spacing: 4

            Icon {
                anchors.verticalCenter: parent.verticalCenter
                visible: button.checkmark
                name: "checkmark"
                size: 12
                color: Theme.green
            }
            Text {
                objectName: "label"
                anchors.verticalCenter: parent.verticalCenter
                text: button.text
                font.family: Theme.fontFamily
                font.pixelSize: button.labelSize
                font.weight: button.labelWeight
                color: button.labelColor
                textFormat: Text.PlainText
            }
        }
    }
    background: Item {
        implicitHeight: 28
        Rectangle {
            anchors.fill: parent
            radius: 10
            color: button.faceColor
            opacity: button.faceOpacity
        }
        FocusRing {
            visible: button.visualFocus
            cornerRadius: 10
        }
    }
}
