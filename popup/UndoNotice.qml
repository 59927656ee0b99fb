import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui
import Tessary.Popup

// A small notice where the popup was: "Replaced." with Undo for a few seconds, then how
// an Undo ended. It comes up without taking the keyboard from the window the text went
// into; once the user gives it the keyboard, Return or Space presses Undo and Escape
// closes it.
Window {
    id: notice

    required property UndoNoticeModel model
    // How long it stays, offering Undo or telling how one ended; the pointer over it holds it.
    property int offerFor: 6000
    property int tellFor: 8000

    width: content.implicitWidth
    height: content.implicitHeight
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    title: qsTr("Tessary")
    color: Theme.background

    onVisibleChanged: if (visible) hide.restart()

    Connections {
        target: notice.model
        function onChanged() {
            hide.restart();
        }
    }

    Timer {
        id: hide
        interval: notice.model.offersUndo ? notice.offerFor : notice.tellFor
        onTriggered: notice.model.dismiss()
    }

    FocusScope {
        id: content
        anchors.fill: parent
        implicitWidth: row.implicitWidth + 28
        implicitHeight: Math.max(row.implicitHeight + 20, 44)
        focus: true
        Accessible.role: Accessible.AlertMessage
        Accessible.name: notice.model.message
        Keys.onEscapePressed: notice.model.dismiss()

        HoverHandler {
            onHoveredChanged: hovered ? hide.stop() : hide.restart()
        }

        Row {
            id: row
            anchors.centerIn: parent
            spacing: 12

            Icon {
                anchors.verticalCenter: parent.verticalCenter
                name: notice.model.refused ? "warning" : "checkmark"
                size: 14
                color: notice.model.refused ? Theme.red : Theme.green
            }
            Text {
                objectName: "message"
                anchors.verticalCenter: parent.verticalCenter
                width: Math.min(implicitWidth, 320)
                text: notice.model.message
                wrapMode: Text.Wrap
                color: Theme.primary
                font.family: Theme.fontFamily
                font.pixelSize: 13
            }
            FooterButton {
                id: undoButton
                anchors.verticalCenter: parent.verticalCenter
                visible: notice.model.offersUndo
                text: qsTr("Undo")
                focus: true
                Accessible.description: qsTr("Puts the original text back")
                onClicked: notice.model.undo()
            }
            AbstractButton {
                id: closeButton
                anchors.verticalCenter: parent.verticalCenter
                implicitWidth: 18
                implicitHeight: 18
                hoverEnabled: true
                focusPolicy: Qt.TabFocus
                Accessible.role: Accessible.Button
                Accessible.name: qsTr("Close")
                Accessible.onPressAction: clicked()
                Keys.onReturnPressed: clicked()
                Keys.onEnterPressed: clicked()
                onClicked: notice.model.dismiss()
                background: Rectangle {
                    radius: width / 2
                    color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (closeButton.hovered ? 1 : 0.5))
                }
                contentItem: Item {
                    Icon {
                        anchors.centerIn: parent
                        name: "xmark"
                        size: 8
                        color: closeButton.hovered ? Theme.primary : Theme.secondary
                    }
                }
            }
        }
    }

    // A hairline edge, as the popup has.
    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.width: 1
        border.color: Theme.onBackground(Theme.dark ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(0, 0, 0, 0.22))
    }
}
