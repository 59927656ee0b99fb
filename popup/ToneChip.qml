import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// One tone to choose, as a capsule; the chosen one is checked and tinted purple. Space or
// Return chooses it; a screen reader hears which one is chosen.
AbstractButton {
    id: chip

    property int number: 0 // Alt and this number choose it from anywhere in the popup

    checkable: true
    leftPadding: 12
    rightPadding: 12
    topPadding: 5
    bottomPadding: 5
    hoverEnabled: true
    focusPolicy: Qt.TabFocus // a click leaves the keyboard where it was
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.description: checked ? qsTr("Selected tone, Alt+%1").arg(number) : qsTr("Tone, Alt+%1").arg(number)
    // Screen readers press through the accessibility bus.
    Accessible.onPressAction: if (enabled) clicked()
    Accessible.onToggleAction: if (enabled) clicked()
    Keys.onPressed: event => {
        if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter) && event.modifiers === Qt.NoModifier) {
            event.accepted = true;
            chip.clicked();
        }
    }

    contentItem: Text {
        text: chip.text
        font.family: Theme.fontFamily
        font.pixelSize: 11
        font.weight: Font.Medium
        color: chip.checked ? Theme.purple : chip.hovered ? Theme.primary : Theme.secondary
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        textFormat: Text.PlainText
    }
    background: Rectangle {
        radius: height / 2
        color: chip.checked ? Theme.withAlpha(Theme.purple, chip.hovered ? 0.22 : 0.15)
                            : Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (chip.hovered ? 0.7 : 0.4))
        border.width: 1
        border.color: chip.checked ? Theme.withAlpha(Theme.purple, 0.4) : "transparent"

        FocusRing {
            visible: chip.visualFocus
            cornerRadius: parent.radius
        }
    }
}
