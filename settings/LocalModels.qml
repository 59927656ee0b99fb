pragma ComponentBehavior: Bound
import QtQuick
import Tessary.Ui
import Tessary.Service
import Tessary.Settings
import QtQuick.Controls.Basic
import QtQuick.Layouts

// The models of the model servers found on this computer, one to pick.
ColumnLayout {
    id: list
    required property ModelChooser chooser

    spacing: 4

    RowLayout {
        visible: list.chooser.searching
        spacing: 6
        Spinner { size: 14 }
        Text {
            text: qsTr("Looking for model servers on this computer…")
            font.pixelSize: 11
            color: Theme.secondary
        }
    }
    Text {
        objectName: "noLocalModel"
        Layout.fillWidth: true
        visible: !list.chooser.searching && list.chooser.localChoices.length === 0
        text: qsTr("No model server found on this computer. Start Ollama with the command below, or llama.cpp's server, LM Studio or vLLM, then search again.")
        wrapMode: Text.Wrap
        font.pixelSize: 11
        color: Theme.secondary
    }
    CodeLine {
        visible: !list.chooser.searching && list.chooser.localChoices.length === 0
        command: "ollama serve"
    }
    Repeater {
        model: list.chooser.searching ? [] : list.chooser.localChoices
        ChoiceButton {
            required property string modelData
            required property int index
            objectName: "localModel" + index
            Layout.fillWidth: true
            text: modelData
            checked: index === list.chooser.chosenLocal
            onClicked: list.chooser.chooseLocal(index)
        }
    }
    PlainButton {
        objectName: "searchAgain"
        visible: !list.chooser.searching
        text: qsTr("Search again")
        iconSource: Qt.resolvedUrl("icons/arrow-clockwise.svg")
        onClicked: list.chooser.searchLocal()
    }
}
