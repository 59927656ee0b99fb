import QtQuick
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Popup

// The tones to choose from, one chip each; the chosen one is tinted.
ColumnLayout {
    id: section

    required property PopupViewModel viewModel

    spacing: 8

    SectionLabel {
        text: qsTr("Tone")
    }
    Flickable {
        id: toneRow
        objectName: "toneRow"
        Layout.fillWidth: true
        implicitHeight: chips.implicitHeight
        contentWidth: chips.implicitWidth
        flickableDirection: Flickable.HorizontalFlick
        boundsBehavior: Flickable.StopAtBounds
        clip: true

        // A mouse wheel turns vertically; the row moves sideways, to its last chip.
        WheelHandler {
            target: null
            onWheel: event => {
                const delta = event.angleDelta.x !== 0 ? event.angleDelta.x : event.angleDelta.y;
                const end = Math.max(0, toneRow.contentWidth - toneRow.width);
                toneRow.contentX = Math.max(0, Math.min(end, toneRow.contentX - delta / 2));
            }
        }

        Row {
            id: chips
            spacing: 6

            Repeater {
                model: section.viewModel.tones

                ToneChip {
                    required property string modelData
                    objectName: "tone-" + modelData
                    text: modelData.charAt(0).toUpperCase() + modelData.slice(1).toLowerCase()
                    selected: section.viewModel.selectedTone === modelData
                    onClicked: section.viewModel.selectTone(modelData)
                }
            }
        }

        // Fades the last chip out where the row goes on, so it reads as scrollable.
        Rectangle {
            x: toneRow.contentX + toneRow.width - width
            width: 28
            height: toneRow.height
            visible: toneRow.contentX + toneRow.width < toneRow.contentWidth - 1
            gradient: Gradient {
                orientation: Gradient.Horizontal
                GradientStop {
                    position: 0
                    color: Theme.withAlpha(Theme.background, 0)
                }
                GradientStop {
                    position: 1
                    color: Theme.background
                }
            }
        }
    }
}
