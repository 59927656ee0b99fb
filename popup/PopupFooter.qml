import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import QtQml.Models
import Tessary.Ui
import Tessary.Popup

// The three actions on the result: Retry, Copy (which says "Copied!" for a while) and
// Replace.
RowLayout {
    id: footer

    required property PopupViewModel viewModel
    property bool copied: false
    property int copiedFor: 1800 // ms that Copy reads "Copied!" after a click

    function handleCopy() {
        viewModel.copy();
        copied = true;
        copyResets.append({});
    }

    spacing: 8

    // Every click gets its own reset, so the first of quick clicks ends it.
    ListModel {
        id: copyResets
    }
    Instantiator {
        model: copyResets
        delegate: Timer {
            interval: footer.copiedFor
            running: true
            onTriggered: {
                footer.copied = false;
                copyResets.remove(0); // the oldest reset is always the one due
            }
        }
    }

    FooterButton {
        objectName: "retryButton"
        Layout.fillWidth: true
        Layout.preferredWidth: 1
        text: qsTr("↺ Retry")
        Accessible.name: qsTr("Retry") // a screen reader reads words, not the glyph
        enabled: footer.viewModel.canRetry
        onClicked: footer.viewModel.run()
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
        text: footer.copied ? qsTr("Copied!") : qsTr("Copy")
        enabled: footer.viewModel.canCopy
        opacity: enabled ? 1 : 0.4
        Accessible.name: text
        Accessible.onPressAction: if (enabled) clicked()
        onClicked: footer.handleCopy()

        contentItem: Item {
            implicitHeight: copyLabel.implicitHeight
            Row {
                anchors.centerIn: parent
                spacing: 4

                Icon {
                    anchors.verticalCenter: parent.verticalCenter
                    visible: footer.copied
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
        enabled: footer.viewModel.canReplace
        onClicked: footer.viewModel.replace()
    }
}
