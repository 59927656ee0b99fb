import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.History

// One kept rewrite: when, from where and how, both texts, and what can be done with it.
Item {
    id: row
    required property HistoryListModel history
    required property int index
    required property string original
    required property string result
    required property string instruction
    required property string application
    required property string time
    property bool current: false

    objectName: "entry"
    implicitHeight: box.implicitHeight
    Accessible.role: Accessible.ListItem
    Accessible.name: qsTr("%1, %2: %3").arg(time).arg(instruction).arg(result.slice(0, 200))

    Rectangle {
        id: box
        anchors.left: parent.left
        anchors.right: parent.right
        implicitHeight: content.implicitHeight + 20
        radius: 8
        color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.6)
        border.width: row.current ? 1.5 : 1
        border.color: row.current ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator

        ColumnLayout {
            id: content
            anchors.fill: parent
            anchors.margins: 10
            spacing: 6

            Text {
                Layout.fillWidth: true
                text: [row.time, row.application, row.instruction].filter(part => part.length > 0).join(" · ")
                font.pixelSize: 10
                color: Theme.secondary
                elide: Text.ElideRight
            }
            Text {
                Layout.fillWidth: true
                text: row.original
                textFormat: Text.PlainText
                font.pixelSize: 12
                color: Theme.secondary
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
            }
            Text {
                Layout.fillWidth: true
                text: row.result
                textFormat: Text.PlainText
                font.pixelSize: 13
                color: Theme.primary
                wrapMode: Text.Wrap
                maximumLineCount: 4
                elide: Text.ElideRight
            }
            RowLayout {
                spacing: 14
                PlainButton {
                    objectName: "copyResult"
                    text: qsTr("Copy rewrite")
                    onClicked: row.history.copyResult(row.index)
                }
                PlainButton {
                    objectName: "copyOriginal"
                    text: qsTr("Copy original")
                    onClicked: row.history.copyOriginal(row.index)
                }
                PlainButton {
                    objectName: "rewriteAgain"
                    text: qsTr("Rewrite again")
                    onClicked: row.history.rewriteAgain(row.index)
                }
                Item { Layout.fillWidth: true }
                PlainButton {
                    objectName: "delete"
                    text: qsTr("Delete")
                    Accessible.name: qsTr("Delete this rewrite")
                    color: Theme.red
                    onClicked: row.history.remove(row.index)
                }
            }
        }
    }
}
