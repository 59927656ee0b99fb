import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// Shows the rewrite with what it changed marked, or plain; Ctrl+D does the same.
AbstractButton {
    id: toggle

    checkable: true
    text: qsTr("Show changes")
    hoverEnabled: true
    focusPolicy: Qt.NoFocus
    padding: 0
    Accessible.role: Accessible.CheckBox
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.onToggleAction: toggle.toggle()
    Accessible.onPressAction: toggle.toggle()

    contentItem: Row {
        spacing: 5
        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            width: 12
            height: 12
            radius: 3
            color: toggle.checked ? Theme.purple : "transparent"
            border.width: 1
            border.color: toggle.checked ? Theme.purple : Theme.secondary
            Icon {
                anchors.centerIn: parent
                visible: toggle.checked
                name: "checkmark"
                size: 9
                color: Theme.white
            }
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: toggle.text + "  Ctrl+D"
            font.family: Theme.fontFamily
            font.pixelSize: 11
            color: toggle.hovered ? Theme.primary : Theme.secondary
        }
    }
}
