pragma ComponentBehavior: Bound
import QtQuick
import Tessary.Ui
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// The settings window. Every control writes through to the store at once; there is
// nothing to save.
Window {
    id: root
    required property SettingsModel model

    // Puts the keyboard focus into the API key field, for users sent here to enter one.
    function focusApiKey() {
        apiKey.keyField.forceActiveFocus();
        apiKey.keyField.selectAll();
    }

    title: qsTr("Tessary — Settings")
    width: 480
    height: 580
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    color: Theme.window

    // Return and Escape close the window when the focused control has no use for them.
    Item {
        objectName: "keyHandler"
        anchors.fill: parent
        focus: true
        Keys.onReturnPressed: root.close()
        Keys.onEnterPressed: root.close()
        Keys.onEscapePressed: root.close()

        ColumnLayout {
            anchors.fill: parent
            spacing: 0

            RowLayout {
                Layout.fillWidth: true
                Layout.leftMargin: 20
                Layout.rightMargin: 20
                Layout.topMargin: 20
                Layout.bottomMargin: 16
                spacing: 8
                Logo { size: 16 }
                Text {
                    text: "Tessary"
                    font.pixelSize: 15
                    font.bold: true
                    color: Theme.primary
                }
                Item { Layout.fillWidth: true }
            }

            Divider {}

            ScrollView {
                id: scroll
                objectName: "scroll"
                Layout.fillWidth: true
                Layout.fillHeight: true
                contentWidth: availableWidth
                contentHeight: content.implicitHeight + 40
                ScrollBar.vertical.policy: ScrollBar.AlwaysOn

                ColumnLayout {
                    id: content
                    width: scroll.availableWidth - 40
                    x: 20
                    y: 20
                    spacing: 20

                    LanguageModelSection {
                        id: apiKey
                        Layout.fillWidth: true
                        model: root.model
                    }

                    Divider {}

                    SectionLabel { text: qsTr("Writing Samples") }
                    Text {
                        Layout.fillWidth: true
                        text: qsTr("Paste examples of your writing. The more varied, the better.")
                        wrapMode: Text.Wrap
                        font.pixelSize: 12
                        color: Theme.secondary
                    }
                    Repeater {
                        // Rebuilt when a sample is added or removed, not on every keystroke,
                        // so an editor keeps its focus and cursor while the user types.
                        model: root.model.storage.examples.length
                        SampleRow {
                            Layout.fillWidth: true
                            model: root.model
                            sample: root.model.storage.examples[index] ?? ""
                        }
                    }
                    PlainButton {
                        objectName: "addSample"
                        visible: root.model.canAddSample
                        text: qsTr("Add sample")
                        iconSource: Qt.resolvedUrl("icons/plus.svg")
                        onClicked: root.model.addExample()
                    }

                    Divider {}

                    SectionLabel { text: qsTr("Updates") }
                    UpdatesSection {
                        Layout.fillWidth: true
                        model: root.model
                    }

                    Divider {}

                    SectionLabel { text: qsTr("Instructions") }
                    InstructionsSection {
                        Layout.fillWidth: true
                        model: root.model
                    }

                    Divider {}

                    SectionLabel { text: qsTr("History") }
                    HistorySection {
                        Layout.fillWidth: true
                        model: root.model
                    }

                    Divider {}

                    SectionLabel { text: qsTr("Startup") }
                    SettingsSwitch {
                        objectName: "startAtLogin"
                        text: qsTr("Start at login")
                        checked: root.model.startAtLogin
                        onToggled: root.model.startAtLogin = checked
                    }

                    Divider {}

                    SectionLabel { text: qsTr("Global Shortcut") }
                    RowLayout {
                        spacing: 4
                        Repeater {
                            model: ["Ctrl", "Alt", "H"]
                            KeyCap {
                                required property string modelData
                                key: modelData
                            }
                        }
                        Text {
                            Layout.leftMargin: 4
                            text: root.model.shortcutSetup.offered && !root.model.shortcutSetup.added
                                  ? qsTr("— once your desktop runs it") : qsTr("— works system-wide")
                            font.pixelSize: 12
                            color: Theme.secondary
                        }
                    }
                    ShortcutSetupBox {
                        Layout.fillWidth: true
                        setup: root.model.shortcutSetup
                    }
                    AccessibilityLine { Layout.fillWidth: true; accessibility: root.model.accessibility }
                }
            }

            Divider {}

            RowLayout {
                Layout.fillWidth: true
                Layout.leftMargin: 20
                Layout.rightMargin: 20
                Layout.topMargin: 12
                Layout.bottomMargin: 12
                Text {
                    text: qsTr("Changes save automatically")
                    font.pixelSize: 11
                    color: Theme.secondary
                }
                Item { Layout.fillWidth: true }
                SettingsButton {
                    objectName: "done"
                    text: qsTr("Done")
                    accent: true
                    implicitWidth: 72
                    onClicked: root.close()
                }
            }
        }
    }
}
