import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A one-line text field in the window's own colours.
TextField {
    id: field
    font.pixelSize: 12
    color: Theme.primary
    placeholderTextColor: Theme.secondary
    selectionColor: Theme.purple
    selectedTextColor: "white"
    selectByMouse: true
    leftPadding: 8
    rightPadding: 8
    background: Rectangle {
        implicitHeight: 28
        radius: 6
        color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.06 : 0.03)
        border.width: field.activeFocus ? 1.5 : 1
        border.color: field.activeFocus ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator
    }
}
