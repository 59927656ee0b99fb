pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.History

// The History window: earlier rewrites, newest first, filtered as the user types.
Window {
    id: root
    required property HistoryListModel model

    title: qsTr("Tessary — History")
    width: 520
    height: 600
    minimumWidth: 400
    minimumHeight: 320
    color: Theme.window

    Shortcut {
        sequences: [StandardKey.Find]
        onActivated: search.forceActiveFocus()
    }
    Shortcut {
        sequence: "Escape"
        onActivated: root.close()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            TextField {
                id: search
                objectName: "search"
                Layout.fillWidth: true
                focus: true
                placeholderText: qsTr("Search rewrites")
                Accessible.name: qsTr("Search rewrites")
                font.pixelSize: 12
                color: Theme.primary
                placeholderTextColor: Theme.secondary
                selectByMouse: true
                onTextEdited: root.model.searchText = text
                Keys.onDownPressed: {
                    if (list.currentIndex < 0 && list.count > 0)
                        list.currentIndex = 0;
                    list.forceActiveFocus();
                }
                background: Rectangle {
                    implicitHeight: 28
                    radius: 6
                    color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.06 : 0.03)
                    border.width: search.activeFocus ? 1.5 : 1
                    border.color: search.activeFocus ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator
                }
            }
            PlainButton {
                id: deleteAll
                objectName: "deleteAll"
                text: confirming ? qsTr("Delete all rewrites?") : qsTr("Delete all")
                color: Theme.red
                property bool confirming: false
                // Everything goes only on a second press: one slip must not lose it all.
                onClicked: {
                    if (confirming)
                        root.model.removeAll();
                    confirming = !confirming;
                }
                onActiveFocusChanged: if (!activeFocus) confirming = false
            }
        }

        Text {
            objectName: "failure"
            Layout.fillWidth: true
            visible: text.length > 0
            text: root.model.failureMessage
            wrapMode: Text.Wrap
            font.pixelSize: 12
            color: Theme.red
            Accessible.role: Accessible.AlertMessage
            Accessible.name: text
        }

        ListView {
            id: list
            objectName: "entries"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 8
            model: root.model
            keyNavigationEnabled: true
            activeFocusOnTab: true
            // On the current row: C copies the rewrite, O the original, R rewrites it
            // again, Delete removes it; the arrows move through the list.
            Keys.onPressed: event => {
                event.accepted = true;
                const row = list.currentIndex;
                if (event.key === Qt.Key_C) root.model.copyResult(row);
                else if (event.key === Qt.Key_O) root.model.copyOriginal(row);
                else if (event.key === Qt.Key_R) root.model.rewriteAgain(row);
                else if (event.key === Qt.Key_Delete) root.model.remove(row);
                else event.accepted = false;
            }
            Accessible.role: Accessible.List
            Accessible.name: qsTr("Rewrites")
            ScrollBar.vertical: ScrollBar {}

            delegate: HistoryRow {
                width: ListView.view.width
                history: root.model
                current: ListView.isCurrentItem && list.activeFocus
            }

            Text {
                objectName: "emptyNote"
                anchors.centerIn: parent
                width: parent.width - 40
                visible: root.model.empty && root.model.loaded
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: root.model.searchText.length > 0 ? qsTr("No rewrite contains “%1”.").arg(root.model.searchText)
                                                       : qsTr("Rewrites you make are kept here.")
                font.pixelSize: 12
                color: Theme.secondary
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
    }
}
