import QtQuick
import Tessary.Ui
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

ColumnLayout {
    id: section
    required property SettingsModel model
    readonly property color orange: Theme.dark ? "#ff9f0a" : "#ff9500"

    spacing: 12

    Text {
        objectName: "version"
        text: qsTr("Tessary %1").arg(section.model.version)
        font.pixelSize: 12
        color: Theme.primary
    }

    SettingsSwitch {
        objectName: "autoCheck"
        text: qsTr("Check for updates automatically")
        checked: section.model.storage.updateCheckEnabled
        onToggled: section.model.storage.updateCheckEnabled = checked
    }

    RowLayout {
        Layout.fillWidth: true

        AbstractButton {
            id: check
            objectName: "checkForUpdates"
            enabled: !section.model.checkingForUpdates
            text: section.model.checkingForUpdates ? qsTr("Checking...") : qsTr("Check now")
            Accessible.name: text
            Accessible.onPressAction: if (enabled) clicked()
            Keys.onReturnPressed: clicked()
            Keys.onEnterPressed: clicked()
            onClicked: section.model.checkForUpdates()
            leftPadding: 12
            rightPadding: 12
            topPadding: 6
            bottomPadding: 6
            contentItem: Row {
                spacing: 4
                Item {
                    width: 14
                    height: 14
                    anchors.verticalCenter: parent.verticalCenter
                    Spinner {
                        anchors.centerIn: parent
                        visible: section.model.checkingForUpdates
                        running: visible
                        size: 14
                        color: "white"
                    }
                    Icon {
                        anchors.centerIn: parent
                        visible: !section.model.checkingForUpdates
                        source: Qt.resolvedUrl("icons/arrow-clockwise.svg")
                        size: 12
                        color: "white"
                    }
                }
                Text {
                    anchors.verticalCenter: parent.verticalCenter
                    text: check.text
                    color: "white"
                    font.pixelSize: 11
                    font.weight: Font.Medium
                }
            }
            background: Rectangle {
                radius: 6
                color: Theme.purple
                opacity: check.pressed ? 0.8 : 1
                FocusRing {
                    visible: check.visualFocus
                }
            }
        }
        Item { Layout.fillWidth: true }
        Text {
            objectName: "lastChecked"
            visible: text !== ""
            text: section.model.lastCheckedText
            font.pixelSize: 10
            color: Theme.secondary
        }
    }

    Rectangle {
        objectName: "updateBox"
        visible: section.model.showsUpdate
        Layout.fillWidth: true
        implicitHeight: box.implicitHeight + 20
        radius: 8
        color: Qt.rgba(section.orange.r, section.orange.g, section.orange.b, 0.1)
        border.width: 1
        border.color: Qt.rgba(section.orange.r, section.orange.g, section.orange.b, 0.3)

        RowLayout {
            id: box
            anchors.fill: parent
            anchors.margins: 10
            spacing: 8

            Icon {
                Layout.alignment: Qt.AlignVCenter
                name: "warning"
                size: 16
                color: section.orange
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 4
                Text {
                    text: section.model.updateTitle
                    font.pixelSize: 11
                    font.weight: Font.Medium
                    color: Theme.primary
                }
                Text {
                    Layout.fillWidth: true
                    text: section.model.releaseNotes
                    font.pixelSize: 10
                    color: Theme.secondary
                    wrapMode: Text.Wrap
                    maximumLineCount: 2
                    elide: Text.ElideRight
                }
            }
            AbstractButton {
                id: download
                objectName: "download"
                text: qsTr("Download")
                Accessible.name: text
                Accessible.onPressAction: if (enabled) clicked()
                Keys.onReturnPressed: clicked()
                Keys.onEnterPressed: clicked()
                onClicked: section.model.download()
                leftPadding: 8
                rightPadding: 8
                topPadding: 4
                bottomPadding: 4
                contentItem: Text {
                    text: download.text
                    color: "white"
                    font.pixelSize: 10
                    font.weight: Font.Medium
                }
                background: Rectangle {
                    radius: 4
                    color: Theme.green
                    opacity: download.pressed ? 0.8 : 1
                    FocusRing {
                        visible: download.visualFocus
                        cornerRadius: 4
                    }
                }
            }
        }
    }
}
