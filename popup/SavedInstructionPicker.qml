pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui
import Tessary.Popup

// The instructions saved in Settings, one choice away; choosing one rewrites with it.
ComboBox {
    id: picker

    required property PopupViewModel viewModel

    objectName: "savedInstructions"
    model: picker.viewModel.savedInstructions
    displayText: qsTr("Saved")
    currentIndex: -1
    focusPolicy: Qt.TabFocus
    hoverEnabled: true
    font.family: Theme.fontFamily
    font.pixelSize: 11
    Accessible.name: qsTr("Saved instructions")
    Accessible.onPressAction: picker.popup.open()
    onActivated: index => {
        picker.viewModel.useInstruction(picker.viewModel.savedInstructions[index]);
        picker.currentIndex = -1;
        picker.popup.close();
    }

    delegate: ItemDelegate {
        id: row
        required property string modelData
        required property int index
        objectName: "savedInstruction-" + index
        width: ListView.view ? ListView.view.width : implicitWidth
        text: modelData
        highlighted: picker.highlightedIndex === index
        font: picker.font
        Accessible.name: text
        Accessible.onPressAction: picker.activated(row.index)
    }
    indicator: Text {
        x: picker.width - width - 10
        y: (picker.height - height) / 2
        text: "▾"
        font: picker.font
        color: picker.hovered ? Theme.primary : Theme.secondary
        Accessible.ignored: true
    }
    contentItem: Text {
        leftPadding: 10
        rightPadding: 22
        text: picker.displayText
        font: picker.font
        color: picker.hovered ? Theme.primary : Theme.secondary
        verticalAlignment: Text.AlignVCenter
        textFormat: Text.PlainText
    }
    background: Rectangle {
        implicitHeight: 26
        implicitWidth: 80
        radius: height / 2
        color: Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * (picker.hovered ? 0.7 : 0.4))

        FocusRing {
            visible: picker.visualFocus
            cornerRadius: parent.radius
        }
    }
}
