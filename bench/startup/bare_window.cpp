// The peer: an empty window of the same toolkit and nothing else.
#include <QApplication>
#include <QWidget>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QWidget window;
    window.resize(520, 420);
    window.show();
    return QApplication::exec();
}
