import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Popup

// The popup's content: header, the captured text, the tones, the streamed result and
// the three actions.
FocusScope {
    id: view

    required property PopupViewModel viewModel
    readonly property bool showChanges: viewModel.showChanges

    signal closeRequested
    signal moveRequested

    implicitWidth: 360
    implicitHeight: 500

    // The keyboard starts on the chosen tone, or on the instruction in its place: Tab
    // walks on from there.
    function focusTone(reason) {
        if (!tones.focusChosen(reason))
            instruction.focusField(reason);
    }

    // A button that turns disabled under the keyboard (Retry starts a rewrite) would leave
    // the keyboard nowhere: it goes back to the chosen tone.
    Connections {
        target: view.Window.window
        function onActiveFocusItemChanged() {
            const focused = view.Window.activeFocusItem;
            if (view.visible && view.Window.active && (focused === view || focused === null))
                view.focusTone(Qt.TabFocusReason);
        }
    }

    Shortcut {
        sequence: "Escape"
        onActivated: view.closeRequested()
    }
    Shortcut {
        sequence: "Ctrl+D"
        onActivated: view.viewModel.setShowChanges(!view.showChanges)
    }
    Shortcut {
        sequences: ["Ctrl+Return", "Ctrl+Enter"]
        enabled: view.viewModel.canReplace
        onActivated: view.viewModel.replace()
    }

    // Dragging the background moves the window.
    MouseArea {
        anchors.fill: parent
        onPressed: view.moveRequested()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        PopupHeader {
            Layout.fillWidth: true
            onCloseRequested: view.closeRequested()
        }

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 1
            color: Theme.separator
        }

        ScrollView {
            id: scroll
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentWidth: availableWidth
            ScrollBar.horizontal.policy: ScrollBar.AlwaysOff

            Item {
                width: scroll.availableWidth
                implicitHeight: sections.implicitHeight + 32

                MouseArea {
                    anchors.fill: parent
                    onPressed: view.moveRequested()
                }

                ColumnLayout {
                    id: sections
                    anchors.left: parent.left
                    anchors.right: parent.right
                    anchors.top: parent.top
                    anchors.margins: 16
                    spacing: 16

                    // Original
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 6

                        SectionLabel {
                            text: qsTr("Original")
                        }
                        Text {
                            objectName: "originalText"
                            Layout.fillWidth: true
                            padding: 10
                            // Only the start: a long text would otherwise travel whole to the
                            // accessibility bus as this label's name.
                            text: view.viewModel.originalText.length > 0 ? view.viewModel.originalPreview
                                                                         : qsTr("No text selected")
                            textFormat: Text.PlainText
                            font.family: Theme.fontFamily
                            font.pixelSize: 12
                            color: Theme.secondary
                            wrapMode: Text.Wrap
                            maximumLineCount: 4
                            elide: Text.ElideRight
                            Accessible.role: Accessible.StaticText
                            Accessible.name: text

                            Rectangle {
                                anchors.fill: parent
                                z: -1
                                radius: 10
                                color: Theme.onBackground(Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.3))
                            }
                        }
                    }

                    ToneSection {
                        id: tones
                        Layout.fillWidth: true
                        viewModel: view.viewModel
                    }
                    InstructionSection {
                        id: instruction
                        Layout.fillWidth: true
                        Layout.topMargin: -8
                        viewModel: view.viewModel
                    }

                    // Result
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 6

                        SectionLabel {
                            text: qsTr("Stylized")
                        }
                        ChangesToggle {
                            objectName: "showChanges"
                            Binding on checked { value: view.showChanges }
                            onToggled: view.viewModel.setShowChanges(checked)
                        }
                        // Above the result, so that its one line is in sight without scrolling.
                        ThinkingSection { viewModel: view.viewModel; Layout.fillWidth: true }
                        ResultArea {
                            objectName: "resultArea"
                            Layout.fillWidth: true
                            viewModel: view.viewModel
                            showChanges: view.showChanges
                        }
                        // The rewrite came back in another script than the text: Retry is the fix.
                        NoteLine {
                            objectName: "languageNote"
                            Layout.fillWidth: true
                            text: view.viewModel.languageNote
                        }
                        NoteLine {
                            objectName: "note"
                            Layout.fillWidth: true
                            text: view.viewModel.note
                        }
                    }
                }
            }
        }

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 1
            color: Theme.separator
        }

        PopupFooter {
            Layout.fillWidth: true
            Layout.leftMargin: 12
            Layout.rightMargin: 12
            Layout.topMargin: 10
            Layout.bottomMargin: 10
            viewModel: view.viewModel
        }
    }
}
