pragma ComponentBehavior: Bound
import QtQuick
import Tessary.Ui
import Tessary.Service
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// Which language model rewrites: one on this computer, an OpenAI-compatible service,
// or the Tessary service; and a connection test that spends no tokens.
ColumnLayout {
    id: section
    required property SettingsModel model
    readonly property StorageManager store: model.storage
    readonly property ModelChooser chooser: model.chooser
    property alias keyField: tessary.keyField

    function choose(provider) {
        store.provider = provider;
        if (provider === StorageManager.LocalModel && !chooser.searching && chooser.localChoices.length === 0)
            chooser.searchLocal();
    }

    spacing: 8
    Component.onCompleted: if (store.provider === StorageManager.LocalModel) chooser.searchLocal()

    SectionLabel { text: qsTr("Language Model") }

    ChoiceButton {
        objectName: "providerLocal"
        text: qsTr("A model on this computer")
        checked: section.store.provider === StorageManager.LocalModel
        onClicked: section.choose(StorageManager.LocalModel)
    }
    LocalModels {
        Layout.fillWidth: true
        Layout.leftMargin: 24
        visible: section.store.provider === StorageManager.LocalModel
        chooser: section.chooser
    }

    ChoiceButton {
        objectName: "providerService"
        text: qsTr("An OpenAI-compatible service")
        checked: section.store.provider === StorageManager.ModelService
        onClicked: section.choose(StorageManager.ModelService)
    }
    ServiceModel {
        Layout.fillWidth: true
        Layout.leftMargin: 24
        visible: section.store.provider === StorageManager.ModelService
        store: section.store
        chooser: section.chooser
    }

    ChoiceButton {
        objectName: "providerTessary"
        text: qsTr("The Tessary service")
        checked: section.store.provider === StorageManager.TessaryService
        onClicked: section.choose(StorageManager.TessaryService)
    }
    ApiKeySection {
        id: tessary
        Layout.fillWidth: true
        Layout.leftMargin: 24
        visible: section.store.provider === StorageManager.TessaryService
        model: section.model
    }

    RowLayout {
        Layout.fillWidth: true
        Layout.topMargin: 4
        spacing: 8

        SettingsButton {
            objectName: "testConnection"
            text: qsTr("Test connection")
            enabled: section.chooser.resultKind !== ModelChooser.Working
            onClicked: section.chooser.testConnection()
        }
        Spinner {
            visible: section.chooser.resultKind === ModelChooser.Working
        }
    }
    Text {
        objectName: "connectionMessage"
        Layout.fillWidth: true
        visible: text.length > 0
        text: section.chooser.result
        wrapMode: Text.Wrap
        font.pixelSize: 11
        color: section.chooser.resultKind === ModelChooser.Succeeded ? Theme.green
             : section.chooser.resultKind === ModelChooser.Failed ? Theme.red : Theme.secondary
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
}
