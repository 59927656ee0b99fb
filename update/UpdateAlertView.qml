pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Update

// "Update Available", in the look of every other Tessary window. Not modal: the rest of
// the program goes on. Return downloads (the focused choice), Escape is Later, Tab walks
// the three buttons.
Window {
    id: root
    required property UpdateAlert model

    title: qsTr("Tessary — Update Available")
    flags: Qt.Dialog
    modality: Qt.NonModal
    color: Theme.window
    width: 440
    height: content.implicitHeight + 40
    minimumWidth: 360

    onVisibleChanged: if (visible) download.forceActiveFocus(Qt.ActiveWindowFocusReason)

    Shortcut {
        sequence: "Escape"
        onActivated: root.close()
    }

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: 20
        spacing: 12

        RowLayout {
            spacing: 8
            Logo { size: 18 }
            Text {
                objectName: "heading"
                text: qsTr("Update Available")
                font.pixelSize: 15
                font.bold: true
                color: Theme.primary
                Accessible.role: Accessible.Heading
                Accessible.name: text
            }
        }
        Text {
            objectName: "message"
            Layout.fillWidth: true
            Layout.maximumHeight: 240
            text: root.model.message
            wrapMode: Text.Wrap
            elide: Text.ElideRight
            font.pixelSize: 12
            color: Theme.secondary
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            // Skipping stores nothing: the next check the user asks for offers the release again.
            AlertButton {
                objectName: "skip"
                text: qsTr("Skip This Version")
                onClicked: root.close()
            }
            AlertButton {
                objectName: "later"
                text: qsTr("Later")
                onClicked: root.close()
            }
            AlertButton {
                id: download
                objectName: "download"
                text: qsTr("Download")
                accent: true
                onClicked: {
                    root.model.download();
                    root.close();
                }
            }
        }
    }
}
