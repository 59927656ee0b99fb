import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Popup

// Instead of a tone, the user's own words: typed, or one of those saved in Settings. Says
// which instruction is in effect; a tone chosen afterwards takes its place again.
ColumnLayout {
    id: section

    required property PopupViewModel viewModel

    function focusField(reason) {
        field.forceActiveFocus(reason ?? Qt.OtherFocusReason);
    }

    spacing: 6

    RowLayout {
        Layout.fillWidth: true
        spacing: 6

        InstructionField {
            id: field
            Layout.fillWidth: true
            onAccepted: section.viewModel.useInstruction(text)
        }
        SavedInstructionPicker {
            visible: count > 0
            viewModel: section.viewModel
        }
    }
    Text {
        objectName: "instructionInEffect"
        Layout.fillWidth: true
        visible: section.viewModel.instruction.length > 0
        text: qsTr("Rewritten as you asked: %1").arg(section.viewModel.instruction)
        textFormat: Text.PlainText
        font.family: Theme.fontFamily
        font.pixelSize: 11
        color: Theme.purple
        wrapMode: Text.Wrap
        maximumLineCount: 2
        elide: Text.ElideRight
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
}
