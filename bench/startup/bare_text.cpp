// The peer that shows a line of text: the first one that a process draws takes twice the instructions of an empty
// window.
#include <QApplication>
#include <QLabel>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QLabel window(QStringLiteral("A window"));
    window.resize(520, 420);
    window.show();
    return QApplication::exec();
}
