import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui

// A command the user can run to fix the error, with a button that copies it.
RowLayout {
    id: line

    required property string command
    signal copyRequested(string command)

    spacing: 6

    CodeLine {
        Layout.fillWidth: true
        command: line.command
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
