pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui
import Tessary.Popup

// What the result area shows instead of a result: the error, or why there is nothing to
// rewrite, and where a choice in Settings fixes it, the way there.
Column {
    id: layer

    required property PopupViewModel viewModel

    padding: 20
    spacing: 10

    Icon {
        anchors.horizontalCenter: parent.horizontalCenter
        visible: layer.viewModel.state === PopupViewModel.Error
        name: "warning"
        size: 22
        color: Theme.red
    }
    Text {
        objectName: "errorMessage"
        width: parent.width - 40
        text: layer.viewModel.message
        textFormat: Text.PlainText
        font.family: Theme.fontFamily
        font.pixelSize: 11
        color: Theme.secondary
        wrapMode: Text.Wrap
        horizontalAlignment: Text.AlignHCenter
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
    // Commands that fix it, each its own line of code to copy. Only where the model
    // names them.
    Repeater {
        model: layer.viewModel.commands ?? []

        CommandLine {
            required property string modelData
            width: parent.width - 40
            anchors.horizontalCenter: parent.horizontalCenter
            command: modelData
            onCopyRequested: command => {
                if (typeof layer.viewModel.copyCommand === "function") {
                    layer.viewModel.copyCommand(command);
                } else {
                    clipboardHelper.text = command;
                    clipboardHelper.selectAll();
                    clipboardHelper.copy();
                }
            }
        }
    }
    // Copies a command the way a user's Ctrl+C would.
    TextInput {
        id: clipboardHelper
        visible: false
        Accessible.ignored: true
    }
    AbstractButton {
        id: openSettings
        objectName: "openSettings"
        anchors.horizontalCenter: parent.horizontalCenter
        visible: layer.viewModel.offersSettings
        text: qsTr("Open Settings")
        focusPolicy: Qt.TabFocus
        Accessible.name: text
        Accessible.onPressAction: clicked()
        Keys.onReturnPressed: clicked()
        Keys.onEnterPressed: clicked()
        onClicked: layer.viewModel.openSettings()
        contentItem: Text {
            text: openSettings.text
            font.family: Theme.fontFamily
            font.pixelSize: 11
            font.weight: Font.Medium
            color: Theme.purple
            opacity: openSettings.pressed ? 0.6 : 1
        }
        background: Item {
            FocusRing {
                visible: openSettings.visualFocus
                gap: 4
            }
        }
    }
}
