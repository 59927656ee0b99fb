import QtQuick
import Tessary.Ui
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// The Tessary service: its address and the key it expects.
ColumnLayout {
    id: section
    required property SettingsModel model
    property alias keyField: keyField

    spacing: 8

    SettingsField {
        objectName: "apiBaseField"
        Layout.fillWidth: true
        text: section.model.storage.apiBase
        placeholderText: "http://127.0.0.1:8787/api/v1"
        Accessible.name: qsTr("Tessary service address")
        onTextEdited: {
            // Stored with the choice of service, so the address outlives a restart.
            section.model.storage.provider = StorageManager.TessaryService;
            section.model.storage.apiBase = text.trim();
        }
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 8

        SettingsField {
            id: keyField
            objectName: "apiKeyField"
            Layout.fillWidth: true
            text: section.model.storage.apiKey
            echoMode: reveal.checked ? TextInput.Normal : TextInput.Password
            placeholderText: qsTr("Paste your API key")
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
}
