// SPDX-License-Identifier: MIT
// bare_get URL: what any Qt program pays for one GET.
#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <cstdio>

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    QNetworkAccessManager manager;
    QNetworkReply *reply = manager.get(QNetworkRequest(QUrl(QString::fromLocal8Bit(argv[1]))));
    QObject::connect(reply, &QNetworkReply::finished, &application, [&] {
        std::printf("%lld bytes\n", static_cast<long long>(reply->readAll().size()));
        application.quit();
    });
    return application.exec();
}
