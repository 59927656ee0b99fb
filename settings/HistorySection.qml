import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Settings

// Whether rewrites are kept on this machine, for how long, and the way to them.
ColumnLayout {
    id: section
    required property SettingsModel model
    spacing: 12

    SettingsSwitch {
        objectName: "historyEnabled"
        text: qsTr("Keep rewrites on this computer")
        checked: section.model.storage.historyEnabled
        // Off also deletes what was kept.
        onToggled: section.model.storage.historyEnabled = checked
    }
    RowLayout {
        spacing: 8
        enabled: section.model.storage.historyEnabled
        opacity: enabled ? 1 : 0.5
        Text {
            text: qsTr("Keep them for")
            font.pixelSize: 12
            color: Theme.primary
        }
        SpinBox {
            objectName: "historyDays"
            from: 1
            to: 3650
            editable: true
            value: section.model.storage.historyDays
            font.pixelSize: 12
            Accessible.name: qsTr("Days to keep rewrites")
            onValueModified: section.model.storage.historyDays = value
        }
        Text {
            text: qsTr("days")
            font.pixelSize: 12
            color: Theme.primary
        }
        Item { Layout.fillWidth: true }
        SettingsButton {
            objectName: "openHistory"
            text: qsTr("History…")
            onClicked: section.model.showHistory()
        }
    }
}
