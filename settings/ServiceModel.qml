import QtQuick
import Tessary.Ui
import Tessary.Service
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// An OpenAI-compatible service: its address, its key, and one of the models it lists.
ColumnLayout {
    id: service
    required property StorageManager store
    required property ModelChooser chooser

    spacing: 8

    SettingsField {
        objectName: "modelBaseField"
        Layout.fillWidth: true
        text: service.store.modelBase
        placeholderText: "https://api.openai.com/v1"
        Accessible.name: qsTr("Service address")
        onTextEdited: service.store.modelBase = text.trim()
    }
    SettingsField {
        objectName: "modelKeyField"
        Layout.fillWidth: true
        text: service.store.modelKey
        echoMode: activeFocus ? TextInput.Normal : TextInput.Password
        placeholderText: qsTr("API key of the service")
        Accessible.name: qsTr("Service API key")
        onTextEdited: service.store.modelKey = text.trim()
    }
    RowLayout {
        Layout.fillWidth: true
        spacing: 8
        ComboBox {
            id: models
            objectName: "modelField"
            Layout.fillWidth: true
            editable: true
            model: service.chooser.serviceModels
            editText: service.store.model
            font.pixelSize: 12
            Accessible.name: qsTr("Model")
            onActivated: index => service.store.model = textAt(index)
            // Only what the user types: the box also rewrites its text when its list changes.
            onEditTextChanged: {
                if (contentItem.activeFocus && editText.trim() !== service.store.model)
                    service.store.model = editText.trim();
            }
        }
        SettingsButton {
            objectName: "listModels"
            text: service.chooser.listing ? qsTr("Listing…") : qsTr("List models")
            enabled: !service.chooser.listing && service.store.modelBase.length > 0
            onClicked: service.chooser.listServiceModels()
        }
    }
}
