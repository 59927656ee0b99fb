import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A button of the update window: a ring while the keyboard is on it, Space or Return
// presses it; `accent` fills the default choice.
AbstractButton {
    id: button
    property bool accent: false

    Accessible.name: text
    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    leftPadding: 12
    rightPadding: 12
    topPadding: 5
    bottomPadding: 5
    font.pixelSize: 12
    Keys.onReturnPressed: button.clicked()
    Keys.onEnterPressed: button.clicked()

    contentItem: Text {
        text: button.text
        font: button.font
        color: button.accent ? "white" : Theme.primary
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
    background: Rectangle {
        implicitHeight: 26
        radius: 6
        color: button.accent ? (button.hovered ? Theme.indigo : Theme.purple)
                             : Theme.withAlpha(Theme.primary, button.pressed ? 0.16 : button.hovered ? 0.11 : 0.07)
        border.width: button.visualFocus ? 2 : (button.accent ? 0 : 1)
        border.color: button.visualFocus ? Theme.indigo : Theme.separator
    }
}
