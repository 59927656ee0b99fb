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
        text: qsTr("Say what you want instead of a tone; the popup offers these.")
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
            PlainButton {
                objectName: "removeInstruction"
                text: qsTr("Remove")
                color: Theme.red
                Accessible.name: qsTr("Remove instruction %1").arg(row.index + 1)
                onClicked: section.model.removeInstruction(row.index)
            }
        }
    }
    PlainButton {
        objectName: "addInstruction"
        text: qsTr("Add instruction")
        iconSource: Qt.resolvedUrl("icons/plus.svg")
        onClicked: section.model.addInstruction()
    }
}
