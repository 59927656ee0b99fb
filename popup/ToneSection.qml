pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Popup

// The tones to choose from, one chip each, wrapping onto a second line rather than
// hiding a chip. Tab and the arrow keys walk the chips, Space or Return chooses one, and
// Alt+1…5 choose without walking.
ColumnLayout {
    id: section

    required property PopupViewModel viewModel

    // The keyboard starts on the chosen tone; no ring until the user moves it. false when
    // no tone is chosen (an instruction is in effect).
    function focusChosen(reason) {
        if (!toneGroup.checkedButton)
            return false;
        toneGroup.checkedButton.forceActiveFocus(reason ?? Qt.OtherFocusReason);
        return true;
    }
    function focusNeighbour(index, step) {
        const count = chips.count;
        chips.itemAt((index + step + count) % count).forceActiveFocus(Qt.TabFocusReason);
    }

    spacing: 8

    SectionLabel {
        text: qsTr("Tone")
    }
    ButtonGroup {
        id: toneGroup
    }
    Flow {
        objectName: "toneRow"
        Layout.fillWidth: true
        spacing: 6

        Repeater {
            id: chips
            model: section.viewModel.tones

            ToneChip {
                id: chip
                required property string modelData
                required property int index
                objectName: "tone-" + modelData
                text: modelData.charAt(0).toUpperCase() + modelData.slice(1).toLowerCase()
                number: index + 1
                ButtonGroup.group: toneGroup
                // A Binding, not a binding: a click checks the chip itself, and this must
                // still uncheck it when an instruction takes the tone's place.
                Binding on checked {
                    value: section.viewModel.instruction.length === 0
                        && section.viewModel.selectedTone === chip.modelData
                }
                onClicked: section.viewModel.selectTone(modelData)
                Keys.onLeftPressed: section.focusNeighbour(index, -1)
                Keys.onUpPressed: section.focusNeighbour(index, -1)
                Keys.onRightPressed: section.focusNeighbour(index, 1)
                Keys.onDownPressed: section.focusNeighbour(index, 1)

                Shortcut {
                    sequence: "Alt+" + chip.number
                    enabled: chip.number <= 9
                    onActivated: {
                        chip.forceActiveFocus(Qt.ShortcutFocusReason);
                        chip.clicked();
                    }
                }
            }
        }
    }
}
