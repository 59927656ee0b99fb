import QtQuick
import QtQuick.Layouts
import Tessary.Ui

// Said on the first page where the desktop shows no tray icons: the way back to Settings.
Text {
    objectName: "noTrayNote"
    Layout.fillWidth: true
    text: qsTr("This desktop shows no tray icon for Tessary. To open its Settings later, start Tessary "
               + "again from the applications menu (or choose its Settings action), or run tessary --settings.")
    wrapMode: Text.Wrap
    font.pixelSize: 12
    color: Theme.secondary
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
