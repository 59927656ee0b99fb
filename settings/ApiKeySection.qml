import QtQuick
import Tessary.Ui
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// The key the rewrite service expects, and a way to see at once whether it works.
ColumnLayout {
    id: section
    required property SettingsModel model
    property alias keyField: keyField

    spacing: 10

    SectionLabel { text: qsTr("API Key") }

    RowLayout {
        Layout.fillWidth: true
        spacing: 8

        TextField {
            id: keyField
            objectName: "apiKeyField"
            Layout.fillWidth: true
            text: section.model.storage.apiKey
            echoMode: reveal.checked ? TextInput.Normal : TextInput.Password
            placeholderText: qsTr("Paste your API key")
            placeholderTextColor: Theme.secondary
            font.pixelSize: 12
            color: Theme.primary
            selectionColor: Theme.purple
            selectedTextColor: "white"
            selectByMouse: true
            leftPadding: 8
            rightPadding: 8
            background: Rectangle {
                implicitHeight: 28
                radius: 6
                color: Theme.withAlpha(Theme.primary, Theme.dark ? 0.06 : 0.03)
                border.width: keyField.activeFocus ? 1.5 : 1
                border.color: keyField.activeFocus ? Theme.withAlpha(Theme.purple, 0.7) : Theme.separator
            }
            Accessible.name: qsTr("API key")
            onTextEdited: section.model.storage.apiKey = text
        }
        SettingsButton {
            id: reveal
            objectName: "revealKey"
            checkable: true
            text: checked ? qsTr("Hide") : qsTr("Show")
            implicitWidth: 64
            Layout.fillHeight: true
        }
    }

    Text {
        objectName: "keyInSettingsFile"
        Layout.fillWidth: true
        visible: section.model.storage.keysLoaded && section.model.storage.keysInSettingsFile
        text: qsTr("No keyring answers: the key is kept in the settings file, readable by you only.")
        wrapMode: Text.Wrap
        font.pixelSize: 10
        color: Theme.secondary
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 8

        SettingsButton {
            objectName: "testConnection"
            text: qsTr("Test connection")
            enabled: section.model.connectionState !== SettingsModel.Testing
            onClicked: section.model.testConnection()
        }
        Spinner {
            visible: section.model.connectionState === SettingsModel.Testing
        }
        Text {
            objectName: "connectionMessage"
            Layout.fillWidth: true
            text: section.model.connectionMessage
            elide: Text.ElideRight
            maximumLineCount: 2
            wrapMode: Text.Wrap
            font.pixelSize: 11
            color: section.model.connectionState === SettingsModel.Succeeded ? Theme.green
                 : section.model.connectionState === SettingsModel.Failed ? Theme.red : Theme.secondary
        }
    }
}
