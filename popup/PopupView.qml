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
    property bool copied: false
    property int copiedFor: 1800 // ms that Copy reads "Copied!" after a click
    property bool showChanges: false
    readonly property bool isLoading: viewModel.busy

    signal closeRequested
    signal moveRequested

    implicitWidth: 360
    implicitHeight: 500

    function handleCopy() {
        viewModel.copy();
        copied = true;
        // Every click gets its own reset, so the first of quick clicks ends it.
        const reset = Qt.createQmlObject(
            "import QtQml; Timer { interval: " + view.copiedFor + "; running: true }", view);
        reset.triggered.connect(() => {
            view.copied = false;
            reset.destroy();
        });
    }

    Shortcut {
        sequence: "Escape"
        onActivated: view.closeRequested()
    }
    Shortcut {
        sequence: "Ctrl+D"
        onActivated: view.showChanges = !view.showChanges
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

        // Header
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: headerRow.implicitHeight + 24
            color: Theme.headerMaterial

            RowLayout {
                id: headerRow
                anchors.fill: parent
                anchors.leftMargin: 16
                anchors.rightMargin: 16
                anchors.topMargin: 12
                anchors.bottomMargin: 12
                spacing: 8

                Logo {
                    size: 14
                }
                Text {
                    text: qsTr("Tessary")
                    font.family: Theme.fontFamily
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                    color: Theme.primary
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Item {
                    Layout.fillWidth: true
                }
                AbstractButton {
                    id: closeButton
                    implicitWidth: 22
                    implicitHeight: 22
                    hoverEnabled: true
                    focusPolicy: Qt.NoFocus
                    Accessible.role: Accessible.Button
                    Accessible.name: qsTr("Close")
                    Accessible.onPressAction: if (enabled) clicked()
                    onClicked: view.closeRequested()

                    background: Rectangle {
                        radius: width / 2
                        color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (closeButton.hovered ? 1 : 0.5))
                    }
                    contentItem: Item {
                        Icon {
                            anchors.centerIn: parent
                            name: "xmark"
                            size: 10
                            color: closeButton.hovered ? Theme.primary : Theme.secondary
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
                            id: originalLabel
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

                    // Tone
                    ColumnLayout {
                        Layout.fillWidth: true
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
                                    model: view.viewModel.tones

                                    ToneChip {
                                        required property string modelData
                                        objectName: "tone-" + modelData
                                        text: modelData.charAt(0).toUpperCase() + modelData.slice(1).toLowerCase()
                                        selected: view.viewModel.selectedTone === modelData
                                        onClicked: view.viewModel.selectTone(modelData)
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

                    // Result
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 6

                        SectionLabel {
                            text: qsTr("Stylized")
                        }
                        ChangesToggle {
                            objectName: "showChanges"
                            checked: view.showChanges
                            onToggled: view.showChanges = checked
                        }
                        Rectangle {
                            id: resultArea
                            objectName: "resultArea"
                            Layout.fillWidth: true
                            implicitHeight: Math.max(120, resultLayer.implicitHeight)
                            radius: 10
                            color: Theme.onBackground(Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.3))
                            border.width: 1
                            border.color: Theme.onBackground(Theme.withAlpha(Theme.purple, 0.2))

                            readonly property int viewState: view.viewModel.state
                            readonly property Item resultLayer: viewState === PopupViewModel.Error
                                                                || viewState === PopupViewModel.Notice ? errorLayer
                                                              : viewState === PopupViewModel.Loading ? loadingLayer
                                                              : view.showChanges ? changesLayer : resultEdit

                            Column {
                                id: loadingLayer
                                objectName: "loadingLayer"
                                visible: resultArea.resultLayer === this
                                anchors.centerIn: parent
                                width: parent.width
                                padding: 20
                                spacing: 10

                                Spinner {
                                    anchors.horizontalCenter: parent.horizontalCenter
                                    running: loadingLayer.visible
                                }
                                Text {
                                    width: parent.width - 40
                                    text: qsTr("Reading your style…")
                                    font.family: Theme.fontFamily
                                    font.pixelSize: 11
                                    color: Theme.secondary
                                    horizontalAlignment: Text.AlignHCenter
                                    Accessible.role: Accessible.StaticText
                                    Accessible.name: text
                                }
                            }

                            Column {
                                id: errorLayer
                                objectName: "errorLayer"
                                visible: resultArea.resultLayer === this
                                anchors.centerIn: parent
                                width: parent.width
                                padding: 20
                                spacing: 10

                                Icon {
                                    anchors.horizontalCenter: parent.horizontalCenter
                                    visible: resultArea.viewState === PopupViewModel.Error
                                    name: "warning"
                                    size: 22
                                    color: Theme.red
                                }
                                Text {
                                    objectName: "errorMessage"
                                    width: parent.width - 40
                                    text: view.viewModel.message
                                    textFormat: Text.PlainText
                                    font.family: Theme.fontFamily
                                    font.pixelSize: 11
                                    color: Theme.secondary
                                    wrapMode: Text.Wrap
                                    horizontalAlignment: Text.AlignHCenter
                                    Accessible.role: Accessible.StaticText
                                    Accessible.name: text
                                }
                                // Where the fix is a choice in Settings, one click takes the user there.
                                AbstractButton {
                                    id: openSettings
                                    objectName: "openSettings"
                                    anchors.horizontalCenter: parent.horizontalCenter
                                    visible: view.viewModel.offersSettings
                                    text: qsTr("Open Settings")
                                    focusPolicy: Qt.NoFocus
                                    Accessible.name: text
                                    Accessible.onPressAction: clicked()
                                    onClicked: view.viewModel.openSettings()
                                    contentItem: Text {
                                        text: openSettings.text
                                        font.family: Theme.fontFamily
                                        font.pixelSize: 11
                                        font.weight: Font.Medium
                                        color: Theme.purple
                                        opacity: openSettings.pressed ? 0.6 : 1
                                    }
                                    background: null
                                }
                            }

                            TextEdit {
                                id: resultEdit
                                objectName: "resultText"
                                visible: resultArea.resultLayer === this
                                anchors.left: parent.left
                                anchors.right: parent.right
                                anchors.top: parent.top
                                topPadding: 12
                                bottomPadding: 12
                                leftPadding: 12
                                rightPadding: 12
                                readOnly: true
                                selectByMouse: true
                                persistentSelection: true
                                textFormat: TextEdit.PlainText
                                wrapMode: TextEdit.Wrap
                                font.family: Theme.fontFamily
                                font.pixelSize: 13
                                color: Theme.primary
                                selectionColor: Theme.withAlpha(Theme.purple, 0.35)
                                selectedTextColor: Theme.primary
                                Accessible.role: Accessible.EditableText
                                Accessible.name: qsTr("Stylized text")
                                Accessible.readOnly: true
                                // With the keyboard here, the text takes Ctrl+Enter before the
                                // window's shortcut can: hand it on.
                                Keys.onPressed: event => {
                                    const enter = event.key === Qt.Key_Return || event.key === Qt.Key_Enter;
                                    if (enter && (event.modifiers & Qt.ControlModifier)) {
                                        event.accepted = true;
                                        if (view.viewModel.canReplace)
                                            view.viewModel.replace();
                                    }
                                }
                            }
                            DiffText {
                                id: changesLayer
                                objectName: "changesLayer"
                                visible: resultArea.resultLayer === this
                                anchors.left: parent.left
                                anchors.right: parent.right
                                anchors.top: parent.top
                                padding: 12
                                original: view.viewModel.originalText
                                result: visible ? view.viewModel.resultText : ""
                                partial: view.viewModel.busy
                            }
                            StreamedText {
                                id: feed
                                objectName: "resultFeed"
                                target: resultEdit
                                viewModel: view.viewModel
                                lineSpacing: 3
                            }
                        }
                        Text {
                            objectName: "note"
                            Layout.fillWidth: true
                            visible: text.length > 0
                            text: view.viewModel.note
                            font.family: Theme.fontFamily
                            font.pixelSize: 11
                            color: Theme.secondary
                            wrapMode: Text.Wrap
                            Accessible.role: Accessible.StaticText
                            Accessible.name: text
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

        // Footer
        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 12
            Layout.rightMargin: 12
            Layout.topMargin: 10
            Layout.bottomMargin: 10
            spacing: 8

            FooterButton {
                objectName: "retryButton"
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                text: qsTr("↺ Retry")
                Accessible.name: qsTr("Retry") // a screen reader reads words, not the glyph
                enabled: view.viewModel.canRetry
                onClicked: view.viewModel.run()
            }
            Button {
                id: copyButton
                objectName: "copyButton"
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                padding: 0
                topPadding: 8
                bottomPadding: 8
                hoverEnabled: true
                focusPolicy: Qt.NoFocus
                text: view.copied ? qsTr("Copied!") : qsTr("Copy")
                enabled: view.viewModel.canCopy
                opacity: enabled ? 1 : 0.4
                Accessible.name: text
                Accessible.onPressAction: if (enabled) clicked()
                onClicked: view.handleCopy()

                contentItem: Item {
                    implicitHeight: copyLabel.implicitHeight
                    Row {
                        anchors.centerIn: parent
                        spacing: 4

                        Icon {
                            anchors.verticalCenter: parent.verticalCenter
                            visible: view.copied
                            name: "checkmark"
                            size: 12
                            color: Theme.green
                        }
                        Text {
                            id: copyLabel
                            text: copyButton.text
                            font.family: Theme.fontFamily
                            font.pixelSize: 13
                            font.weight: Font.DemiBold
                            color: Theme.white
                            textFormat: Text.PlainText
                        }
                    }
                }
                background: Rectangle {
                    radius: 10
                    color: copyButton.hovered && copyButton.enabled ? Theme.indigo : Theme.purple
                }
            }
            FooterButton {
                objectName: "replaceButton"
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                text: qsTr("↵ Replace")
                Accessible.name: qsTr("Replace")
                enabled: view.viewModel.canReplace
                onClicked: view.viewModel.replace()
            }
        }
    }
}
