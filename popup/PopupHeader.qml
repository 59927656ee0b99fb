import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui

// The popup's title bar: the logo, the name and the close button.
Rectangle {
    id: header

    signal closeRequested

    implicitHeight: headerRow.implicitHeight + 24
    color: Theme.headerMaterial

    RowLayout {
        id: headerRow
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 12
        anchors.bottomMargin: 12
        spacing: 8

        Logo {
            size: 14
        }
        Text {
            text: qsTr("Tessary")
            font.family: Theme.fontFamily
            font.pixelSize: 13
            font.weight: Font.DemiBold
            color: Theme.primary
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Item {
            Layout.fillWidth: true
        }
        AbstractButton {
            id: closeButton
            objectName: "closeButton"
            implicitWidth: 22
            implicitHeight: 22
            hoverEnabled: true
            focusPolicy: Qt.TabFocus // a click leaves the keyboard where it was
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Close")
            Accessible.onPressAction: if (enabled) clicked()
            Keys.onReturnPressed: clicked()
            Keys.onEnterPressed: clicked()
            onClicked: header.closeRequested()

            background: Rectangle {
                radius: width / 2
                color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (closeButton.hovered ? 1 : 0.5))

                FocusRing {
                    visible: closeButton.visualFocus
                    gap: 2
                    cornerRadius: parent.radius
                }
            }
            contentItem: Item {
                Icon {
                    anchors.centerIn: parent
                    name: "xmark"
                    size: 10
                    color: closeButton.hovered ? Theme.primary : Theme.secondary
                }
            }
        }
    }
}
