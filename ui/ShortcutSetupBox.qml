import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui

// Ctrl+Alt+H where the desktop runs it: one sentence, then the line to add or the
// button that adds it. Takes no room where there is nothing to set up.
ColumnLayout {
    id: box
    required property ShortcutSetup setup
    // The button that adds the shortcut, for a page that starts the keyboard there.
    readonly property Item addButton: addButton
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
        id: addButton
        objectName: "addShortcut"
        Layout.alignment: box.horizontalAlignment === Text.AlignHCenter ? Qt.AlignHCenter : Qt.AlignLeft
        visible: box.setup.canAdd
        text: qsTr("Add Ctrl+Alt+H")
        Accessible.name: text
        Accessible.onPressAction: if (enabled) clicked()
        Keys.onReturnPressed: clicked()
        Keys.onEnterPressed: clicked()
        onClicked: box.setup.add()
        font.pixelSize: 12
        // Drawn in the window's own colours: the stock look ignores dark palettes.
        contentItem: Text {
            text: addButton.text
            font: addButton.font
            color: Theme.primary
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
        }
        background: Rectangle {
            implicitHeight: 26
            radius: 6
            color: Theme.withAlpha(Theme.primary, addButton.pressed ? 0.16 : addButton.hovered ? 0.11 : 0.07)
            border.width: 1
            border.color: Theme.separator

            FocusRing {
                visible: addButton.visualFocus
            }
        }
    }
}
