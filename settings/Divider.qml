import QtQuick
import Tessary.Ui
import QtQuick.Layouts

Rectangle {
    Layout.fillWidth: true
    implicitHeight: 1
    color: Theme.separator
}
