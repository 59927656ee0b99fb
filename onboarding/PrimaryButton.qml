import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui

// The filled call to action at the foot of a page. The pointer is tracked by the
// wrapper, which stays enabled, so a button that becomes enabled under a resting
// pointer shows its hover colour at once. Given the focus, Return or Space presses it.
FocusScope {
    id: root
    property string text
    property url iconSource
    property bool disabled: false
    readonly property bool hover: hoverHandler.hovered
    signal activated

    implicitWidth: button.implicitWidth
    implicitHeight: button.implicitHeight
    Accessible.ignored: true

    HoverHandler {
        id: hoverHandler
        cursorShape: root.disabled ? Qt.ArrowCursor : Qt.PointingHandCursor
    }

    AbstractButton {
        id: button
        objectName: root.objectName + "Button"
        anchors.fill: parent
        focus: true
        enabled: !root.disabled
        text: root.text
        Accessible.name: root.text
        // Screen readers press through the accessibility bus; Qt's buttons ignore it unheard.
        Accessible.onPressAction: if (enabled) clicked()
        leftPadding: 18
        rightPadding: 18
        topPadding: 9
        bottomPadding: 9
        onClicked: root.activated()
        Keys.onReturnPressed: root.activated()
        Keys.onEnterPressed: root.activated()

        contentItem: Row {
            spacing: 6
            Text {
                anchors.verticalCenter: parent.verticalCenter
                text: root.text
                color: "white"
                font.pixelSize: 13
                font.weight: Font.Medium
            }
            Icon {
                anchors.verticalCenter: parent.verticalCenter
                source: root.iconSource
                size: 12
                color: "white"
            }
        }
        background: Rectangle {
            radius: 9
            // A ring for keyboard users only; a click leaves no trace.
            Rectangle {
                anchors.fill: parent
                anchors.margins: -3
                radius: parent.radius + 3
                color: "transparent"
                border.width: 2
                border.color: Theme.withAlpha(Theme.purple, 0.5)
                visible: button.visualFocus
            }
            color: root.disabled ? Theme.withAlpha(Theme.purple, 0.35) : root.hover ? Theme.indigo : Theme.purple
            Behavior on color {
                ColorAnimation {
                    duration: 150
                    easing.type: Easing.InOutQuad
                }
            }
        }
    }
}
