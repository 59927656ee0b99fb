pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Settings

// Instructions the user gives often ("shorter", "fix grammar only", "in German"), kept
// to be picked in the popup instead of a tone.
ColumnLayout {
    id: section
    required property SettingsModel model
    spacing: 8

    Text {
        Layout.fillWidth: true
        text: section.model.shortcutSetup.offered
            ? qsTr("Say what you want instead of a tone; the popup offers these. To give one a shortcut, bind its command below in the desktop's keyboard settings.")
            : qsTr("Say what you want instead of a tone; the popup offers these, and a shortcut of its own rewrites the selection with one.")
        wrapMode: Text.Wrap
        font.pixelSize: 12
        color: Theme.secondary
    }
    Repeater {
        // Rebuilt when one is added or removed, not on every keystroke.
        model: section.model.storage.savedInstructions.length
        RowLayout {
            id: row
            required property int index
            Layout.fillWidth: true
            spacing: 8
            SettingsField {
                objectName: "instructionEditor"
                Layout.fillWidth: true
                text: section.model.storage.savedInstructions[row.index] ?? ""
                placeholderText: qsTr("e.g. shorter, in German")
                maximumLength: 200
                Accessible.name: qsTr("Saved instruction %1").arg(row.index + 1)
                onTextEdited: section.model.setInstruction(row.index, text)
            }
            ShortcutRecorder {
                objectName: "instructionShortcut"
                visible: !section.model.shortcutSetup.offered
                sequence: section.model.storage.instructionShortcuts[row.index] ?? ""
                Accessible.name: qsTr("Shortcut for instruction %1").arg(row.index + 1)
                onKeysPressed: (key, modifiers) => {
                    if (section.model.setInstructionShortcut(row.index, key, modifiers))
                        recording = false;
                }
            }
            PlainButton {
                objectName: "removeInstruction"
                text: qsTr("Remove")
                color: Theme.red
                Accessible.name: qsTr("Remove instruction %1").arg(row.index + 1)
                onClicked: section.model.removeInstruction(row.index)
            }
        }
    }
    // Where the desktop binds the keys, each instruction's command is bound there.
    Repeater {
        model: section.model.shortcutSetup.offered ? section.model.storage.savedInstructions : []
        TextEdit {
            required property int index
            objectName: "instructionCommand"
            Layout.fillWidth: true
            visible: text.length > 0
            text: section.model.instructionCommand(index)
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            font.family: "monospace"
            font.pixelSize: 11
            color: Theme.secondary
            Accessible.role: Accessible.StaticText
            Accessible.name: qsTr("Command for instruction %1: %2").arg(index + 1).arg(text)
        }
    }
    PlainButton {
        objectName: "addInstruction"
        text: qsTr("Add instruction")
        iconSource: Qt.resolvedUrl("icons/plus.svg")
        onClicked: section.model.addInstruction()
    }
}
