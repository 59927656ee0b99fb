import QtQuick
import Tessary.Ui
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// One writing sample: its editor and, to the right, the button that removes it.
RowLayout {
    id: row
    required property SettingsModel model
    required property int index
    required property string sample

    spacing: 8

    Rectangle {
        Layout.fillWidth: true
        Layout.alignment: Qt.AlignTop
        implicitHeight: Math.max(70, editor.implicitHeight)
        radius: 8
        color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.3)
        border.width: 1
        border.color: Theme.withAlpha(Theme.secondary, 0.2)

        TextArea {
            id: editor
            objectName: "sampleEditor"
            anchors.fill: parent
            padding: 8
            text: row.sample
            wrapMode: TextEdit.Wrap
            font.pixelSize: 12
            color: Theme.primary
            selectByMouse: true
            selectionColor: Theme.purple
            selectedTextColor: "white"
            background: null
            Accessible.name: qsTr("Writing sample %1").arg(row.index + 1)
            // Tab leaves the sample, as in a form: otherwise the keyboard could not get past it.
            Keys.onTabPressed: nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason)
            Keys.onBacktabPressed: nextItemInFocusChain(false).forceActiveFocus(Qt.BacktabFocusReason)
            onTextChanged: row.model.setExample(row.index, text)
        }
    }

    AbstractButton {
        id: remove
        objectName: "removeSample"
        Layout.alignment: Qt.AlignTop
        Layout.topMargin: 4
        implicitWidth: 18
        implicitHeight: 18
        Accessible.name: qsTr("Remove sample %1").arg(row.index + 1)
        Accessible.onPressAction: if (enabled) clicked()
        Keys.onReturnPressed: clicked()
        Keys.onEnterPressed: clicked()
        hoverEnabled: true
        onClicked: row.model.removeExample(row.index)
        background: Rectangle {
            radius: width / 2
            color: Theme.red
            opacity: remove.pressed ? 1 : (remove.hovered ? 0.85 : 0.7)
            Rectangle {
                anchors.centerIn: parent
                width: 8
                height: 2
                radius: 1
                color: "white"
            }
            FocusRing {
                visible: remove.visualFocus
                gap: 2
                cornerRadius: parent.radius
            }
        }
    }
}
