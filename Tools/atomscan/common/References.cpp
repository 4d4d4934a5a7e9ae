#include "common/References.h"

#include "common/Text.h"

namespace atomscan_tool {

ReferenceReport CheckReferences(Tessel::InterfaceRef<QT::IQTMovie>& movie, const std::string& absolutePath)
{
    ReferenceReport report;
    QT::ExternalReferenceMap all;
    report.readable = QT::GetAllExternalReferences(movie, all);
    const QT::String16 moviePath = ToString16(absolutePath);
    // The library answers for a whole map; one map a reference tells which are missing.
    for (const auto& [key, reference] : all) {
        const QT::ExternalReferenceMap one = {{key, reference}};
        report.references.push_back({reference, QT::ValidateExternalReferences(moviePath, one)});
    }
    return report;
}

} // namespace atomscan_tool
