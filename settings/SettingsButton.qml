import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A push button drawn in the window's own colours (the stock one ignores dark palettes);
// `accent` makes it the filled default action.
AbstractButton {
    id: button
    property bool accent: false

    Accessible.name: text
    // Screen readers press through the accessibility bus; Qt's buttons ignore it unheard.
    Accessible.onPressAction: {
        if (!enabled)
            return;
        if (checkable) {
            toggle();
            toggled();
        }
        clicked();
    }
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    hoverEnabled: true
    leftPadding: 12
    rightPadding: 12
    topPadding: 5
    bottomPadding: 5
    font.pixelSize: 12
    opacity: enabled ? 1 : 0.5

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
        border.width: button.accent ? 0 : 1
        border.color: Theme.separator
        FocusRing {
            visible: button.visualFocus
        }
        Behavior on color {
            ColorAnimation { duration: 150 }
        }
    }
}
