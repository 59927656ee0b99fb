import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui

// Ctrl+Alt+H where the desktop runs it: one sentence, then the line to add or the
// button that adds it. Takes no room where there is nothing to set up.
ColumnLayout {
    id: box
    required property ShortcutSetup setup
    property int horizontalAlignment: Text.AlignLeft

    visible: setup.offered
    spacing: 8

    Text {
        objectName: "shortcutMessage"
        Layout.fillWidth: true
        horizontalAlignment: box.horizontalAlignment
        text: box.setup.message
        wrapMode: Text.Wrap
        font.pixelSize: 12
        color: box.setup.added ? Theme.green : Theme.secondary
    }
    TextEdit {
        objectName: "shortcutLine"
        Layout.fillWidth: true
        visible: text !== ""
        horizontalAlignment: box.horizontalAlignment
        text: box.setup.configLine
        readOnly: true
        selectByMouse: true
        wrapMode: TextEdit.WrapAnywhere
        font.family: "monospace"
        font.pixelSize: 12
        color: Theme.primary
        Accessible.role: Accessible.EditableText
        Accessible.name: text
    }
    Button {
        objectName: "addShortcut"
        Layout.alignment: box.horizontalAlignment === Text.AlignHCenter ? Qt.AlignHCenter : Qt.AlignLeft
        visible: box.setup.canAdd
        text: qsTr("Add Ctrl+Alt+H")
        Accessible.name: text
        onClicked: box.setup.add()
    }
}
