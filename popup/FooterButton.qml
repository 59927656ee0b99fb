import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A plain footer button: a soft grey face that darkens a little under the pointer.
Button {
    id: button

    padding: 0
    topPadding: 8
    bottomPadding: 8
    hoverEnabled: true
    focusPolicy: Qt.NoFocus
    opacity: enabled ? 1 : 0.4
    Accessible.name: text
    // Screen readers press through the accessibility bus.
    Accessible.onPressAction: if (enabled) clicked()

    contentItem: Text {
        text: button.text
        font.family: Theme.fontFamily
        font.pixelSize: 12
        font.weight: Font.Medium
        color: Theme.primary
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        textFormat: Text.PlainText
    }
    background: Rectangle {
        radius: 10
        color: Theme.quaternary
        opacity: button.down ? 1 : button.hovered && button.enabled ? 0.8 : 0.5
    }
}
