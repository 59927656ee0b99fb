import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// A saved instruction's own shortcut: pressed, it waits for the keys to use (with Ctrl, Alt
// or Super); Backspace clears it, Escape leaves it as it was.
AbstractButton {
    id: recorder

    required property string sequence
    property bool recording: false

    // key 0: cleared. Returns whether the keys made a shortcut.
    signal keysPressed(int key, int modifiers)

    text: recording ? qsTr("Press keys…") : sequence.length > 0 ? sequence : qsTr("Set shortcut")
    hoverEnabled: true
    Accessible.role: Accessible.Button
    Accessible.onPressAction: recorder.clicked()
    onClicked: {
        recording = true;
        forceActiveFocus(Qt.OtherFocusReason);
    }
    onActiveFocusChanged: if (!activeFocus) recording = false
    Keys.onPressed: event => {
        if (!recording) {
            if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
                event.accepted = true;
                recorder.clicked();
            }
            return;
        }
        event.accepted = true;
        if (event.key === Qt.Key_Escape) {
            recording = false;
        } else if (event.key === Qt.Key_Backspace || event.key === Qt.Key_Delete) {
            recording = false;
            recorder.keysPressed(0, 0);
        } else {
            recorder.keysPressed(event.key, event.modifiers);
        }
    }

    contentItem: Text {
        text: recorder.text
        font.pixelSize: 12
        color: recorder.recording ? Theme.purple : recorder.sequence.length > 0 ? Theme.primary : Theme.secondary
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
    background: Rectangle {
        implicitWidth: 110
        implicitHeight: 28
        radius: 6
        color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.06 : 0.03)
        border.width: recorder.recording ? 1.5 : 1
        border.color: recorder.recording ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator

        FocusRing {
            visible: recorder.visualFocus && !recorder.recording
        }
    }
}
