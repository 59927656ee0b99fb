import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui

// A command the user can run to fix the error: monospace on one line, never split, with
// a button that copies it.
RowLayout {
    id: line

    required property string command
    signal copyRequested(string command)

    spacing: 6

    Rectangle {
        Layout.fillWidth: true
        implicitHeight: code.implicitHeight + 8
        implicitWidth: code.implicitWidth + 12
        radius: 5
        color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.08 : 0.05)
        border.width: 1
        border.color: Theme.separator
        clip: true

        // Longer than the line, it scrolls sideways as the cursor moves rather than wrap.
        TextInput {
            id: code
            objectName: "command"
            anchors.fill: parent
            anchors.leftMargin: 6
            anchors.rightMargin: 6
            verticalAlignment: TextInput.AlignVCenter
            text: line.command
            readOnly: true
            selectByMouse: true
            font.family: "monospace"
            font.pixelSize: 11
            color: Theme.primary
            selectionColor: Theme.withAlpha(Theme.purple, 0.35)
            selectedTextColor: Theme.primary
            Accessible.role: Accessible.EditableText
            Accessible.name: text
            Accessible.readOnly: true
        }
    }
    FooterButton {
        id: copyCommand
        objectName: "copyCommand"
        text: copied ? qsTr("Copied!") : qsTr("Copy")
        Accessible.name: qsTr("Copy %1").arg(line.command)
        leftPadding: 8
        rightPadding: 8
        topPadding: 3
        bottomPadding: 3
        labelSize: 11
        property bool copied: false
        onClicked: {
            line.copyRequested(line.command);
            copied = true;
            copiedReset.restart();
        }
        Timer {
            id: copiedReset
            interval: 1800
            onTriggered: copyCommand.copied = false
        }
    }
}
