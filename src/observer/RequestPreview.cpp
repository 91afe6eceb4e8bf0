#include "observer/RequestPreview.h"

#include "base/Fault.h"

#include <QJsonDocument>

namespace ostrel {

Result<RequestPreview> RequestPreview::fromJson(const QByteArray &json)
{
    const QJsonObject record = QJsonDocument::fromJson(json).object();
    if (!record.value(QLatin1String("frames")).isArray())
        return std::unexpected(faultError(Fault::UndecodableAnswer, QStringLiteral("frames is no list")));
    return RequestPreview{.record = record};
}

} // namespace ostrel
