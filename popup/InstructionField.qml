import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// The user's own words for this rewrite ("shorter", "in German"); Return rewrites with them.
TextField {
    id: field

    objectName: "instructionField"
    placeholderText: qsTr("Or say what you want, then Return")
    font.family: Theme.fontFamily
    font.pixelSize: 11
    color: Theme.primary
    placeholderTextColor: Theme.secondary
    selectionColor: Theme.purple
    selectedTextColor: Theme.white
    selectByMouse: true
    leftPadding: 10
    rightPadding: 10
    topPadding: 5
    bottomPadding: 5
    Accessible.name: qsTr("Instruction")
    Accessible.description: qsTr("Your own words for this rewrite; Return rewrites with them")
    // Screen readers press to start typing.
    Accessible.onPressAction: field.forceActiveFocus(Qt.OtherFocusReason)

    background: Rectangle {
        implicitHeight: 26
        radius: height / 2
        color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.4)
        border.width: field.activeFocus ? 1.5 : 1
        border.color: field.activeFocus ? Theme.withAlpha(Theme.purple, 0.7) : "transparent"
    }
}
