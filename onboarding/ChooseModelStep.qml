pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Service
import Tessary.Onboarding

// The third page: the language model that rewrites, picked from what runs on this
// computer. The arrow keys move through the list, Return finishes.
FocusScope {
    id: page
    required property OnboardingModel model
    readonly property ModelChooser chooser: model.chooser
    property real appear: 0

    SequentialAnimation {
        running: true
        PauseAnimation { duration: 50 }
        SpringMotion {
            target: page
            property: "appear"
            to: 1
            response: 0.5
            dampingFraction: 0.75
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.leftMargin: 28
        anchors.rightMargin: 28
        anchors.bottomMargin: 28
        spacing: 0

        StepBadge {
            number: "02"
            label: qsTr("Pick your model")
            opacity: page.appear
        }
        Item { implicitHeight: 20 }
        Text {
            text: qsTr("Choose a language model")
            font.pixelSize: 22
            font.weight: Font.DemiBold
            color: Theme.primary
            opacity: page.appear
            transform: Translate { y: 8 * (1 - page.appear) }
        }
        Item { implicitHeight: 8 }
        Text {
            Layout.fillWidth: true
            text: qsTr("These models run on this computer, so your words stay here. Pick one with the arrow keys.")
            wrapMode: Text.Wrap
            font.pixelSize: 14
            lineHeight: 1.25
            color: Theme.secondary
            opacity: page.appear
        }
        Item { implicitHeight: 16 }

        RowLayout {
            visible: page.chooser.searching
            spacing: 8
            Spinner { size: 16 }
            Text {
                text: qsTr("Looking for model servers on this computer…")
                font.pixelSize: 12
                color: Theme.secondary
            }
        }
        Text {
            objectName: "noLocalModel"
            Layout.fillWidth: true
            visible: !page.chooser.searching && list.count === 0
            text: qsTr("No model server found on this computer. Start Ollama with the command below, or llama.cpp's server, LM Studio or vLLM, and search again; or set up a service in Settings later.")
            wrapMode: Text.Wrap
            font.pixelSize: 12
            color: Theme.secondary
        }
        CodeLine {
            visible: !page.chooser.searching && list.count === 0
            Layout.topMargin: 6
            command: "ollama serve"
        }
        ListView {
            id: list
            objectName: "localModels"
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(contentHeight, 150)
            focus: true
            clip: true
            spacing: 2
            opacity: page.appear
            model: page.chooser.searching ? [] : page.chooser.localChoices
            // The list shows what is stored, and the keys store: a new list (a search again)
            // must not pick its first row over the user's choice.
            currentIndex: page.chooser.chosenLocal
            keyNavigationEnabled: false
            Keys.onUpPressed: page.chooser.chooseLocal(Math.max(0, currentIndex - 1))
            Keys.onDownPressed: page.chooser.chooseLocal(Math.min(count - 1, currentIndex + 1))
            // With nothing to pick, Return sets up later, as the link beside the button does.
            Keys.onReturnPressed: page.model.finish()
            Keys.onEnterPressed: page.model.finish()
            Accessible.role: Accessible.List
            Accessible.name: qsTr("Language models on this computer")
            delegate: ModelRow {
                width: ListView.view.width
                chosen: ListView.isCurrentItem
                onClicked: page.chooser.chooseLocal(index)
            }
        }
        PlainButton {
            objectName: "searchAgain"
            visible: !page.chooser.searching
            Layout.topMargin: 8
            text: qsTr("Search again")
            onClicked: page.chooser.searchLocal()
        }

        Item { Layout.fillHeight: true }
        RowLayout {
            Layout.fillWidth: true
            opacity: page.appear
            PlainButton {
                objectName: "setUpLater"
                text: qsTr("Set up later")
                color: Theme.secondary
                onClicked: page.model.setUpLater()
            }
            Item { Layout.fillWidth: true }
            PrimaryButton {
                objectName: "finishModel"
                text: qsTr("Finish setup")
                iconSource: "qrc:/qt/qml/Tessary/Ui/icons/checkmark.svg"
                disabled: !page.model.serviceUsable
                onActivated: page.model.finish()
            }
        }
    }
}
