import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// One tone to choose, as a capsule; the chosen one is tinted purple.
AbstractButton {
    id: chip

    property bool selected: false

    leftPadding: 12
    rightPadding: 12
    topPadding: 5
    bottomPadding: 5
    hoverEnabled: true
    focusPolicy: Qt.NoFocus
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: selected
    // Screen readers press through the accessibility bus.
    Accessible.onPressAction: if (enabled) clicked()

    contentItem: Text {
        text: chip.text
        font.family: Theme.fontFamily
        font.pixelSize: 11
        font.weight: Font.Medium
        color: chip.selected ? Theme.purple : chip.hovered ? Theme.primary : Theme.secondary
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        textFormat: Text.PlainText
    }
    background: Rectangle {
        radius: height / 2
        color: chip.selected ? Theme.withAlpha(Theme.purple, chip.hovered ? 0.22 : 0.15)
                             : Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (chip.hovered ? 0.7 : 0.4))
        border.width: 1
        border.color: chip.selected ? Theme.withAlpha(Theme.purple, 0.4) : "transparent"
    }
}
