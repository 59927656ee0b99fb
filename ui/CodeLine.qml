import QtQuick

// A command to run, in monospace on one line, never split: longer than the line, it
// scrolls sideways as the cursor moves. Read-only, and selectable for copying.
Rectangle {
    id: line

    required property string command

    implicitHeight: code.implicitHeight + 8
    implicitWidth: code.implicitWidth + 12
    radius: 5
    color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.08 : 0.05)
    border.width: 1
    border.color: Theme.separator
    clip: true

    TextInput {
        id: code
        objectName: "command"
        anchors.fill: parent
        anchors.leftMargin: 6
        anchors.rightMargin: 6
        verticalAlignment: TextInput.AlignVCenter
        text: line.command
        readOnly: true
        selectByMouse: true
        font.family: "monospace"
        font.pixelSize: 11
        color: Theme.primary
        selectionColor: Theme.withAlpha(Theme.purple, 0.35)
        selectedTextColor: Theme.primary
        Accessible.role: Accessible.EditableText
        Accessible.name: text
        Accessible.readOnly: true
    }
}
