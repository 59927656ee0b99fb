import QtQuick

// The ring around a control while the keyboard is on it (Tab, an arrow key, a shortcut);
// a click leaves none. Put it in the control's background and bind `visible` to the
// control's visualFocus.
Rectangle {
    property real gap: 3
    property real cornerRadius: 6

    anchors.fill: parent
    anchors.margins: -gap
    radius: cornerRadius + gap
    color: "transparent"
    border.width: 2
    border.color: Theme.purple
    Accessible.ignored: true
}
