#include <QApplication>
#include <QQuickItem>
#include <QQuickView>
#include <QSystemTrayIcon>

/// A tray icon and a panel with nothing in it: what the toolkit alone takes. It stays until it is ended.
int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QPixmap picture(18, 18);
    picture.fill(Qt::black);
    QSystemTrayIcon icon{QIcon(picture)};
    icon.show();
    QQuickView panel;
    panel.setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    panel.setColor(Qt::transparent);
    panel.resize(320, 560);
    panel.show();
    return QApplication::exec();
}
