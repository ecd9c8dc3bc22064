// nav: pages and the flows that stand over them.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/model/Scope.hpp"

namespace tavorin {

JSONValue OperatorService::pagesReport() const {
  JSONValue::Array pages;
  for (Page p : {Page::script, Page::edit, Page::library}) {
    if (p == Page::script && !Scope::scripting()) continue;
    pages.emplace_back(word(p));
  }
  return JSONValue::object({{"pages", JSONValue(std::move(pages))},
                            {"current", word(store_.route().page)},
                            {"beneath", word(store_.pageBeneath())}});
}

JSONValue OperatorService::flowReport() const {
  return JSONValue::object({{"route", word(store_.route().page)},
                            {"slate", store_.showingSlate},
                            {"exportSheet", store_.showingExportSheet},
                            {"exportSheetArmed", store_.exportSheetArmed},
                            {"fetchSheet", store_.showingFetchSheet},
                            // Lowering the sheet leaves a running export running; the sheet shows it again.
                            {"exportPhase", model().exporter() ? name(model().exporter()->phase()) : "idle"}});
}

void OperatorService::registerNav() {
  onBranch(&OperatorService::navVerbs, {"nav", "pages", "shoot", "export.flow", "export.youtube", "export.dismiss",
                                        "flow.end"});
}

OperatorService::Answer OperatorService::navVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "nav") {
    const auto route = a.text("route");
    store_.navigate(*route);
    return OperatorResult::success(flowReport());
  }
  if (v == "pages" || v == "modes") return OperatorResult::success(pagesReport());
  if (v == "shoot") {
    if (!model().isOpen()) throw AppModel::Failure::noProduction();
    store_.beginShoot();
    // The slate shows what a roll would do before anyone presses it.
    JSONValue report = flowReport();
    report.set("slate", shootInfoReport());
    return OperatorResult::success(report);
  }
  if (v == "export.flow" || v == "render.flow" || v == "export.youtube") {
    if (!model().isOpen()) throw AppModel::Failure::noProduction();
    if (v == "export.youtube") store_.exportToYouTube();
    else store_.openExportSheet();
    JSONValue report = flowReport();
    // Arming for YouTube needs footage to send; armed, the export's end starts the upload.
    if (v == "export.youtube")
      if (const auto missing = model().missingFootage()) report.set("reason", *missing + ", so the sheet is not armed");
    return OperatorResult::success(report);
  }
  if (v == "export.dismiss") {
    store_.dismissExportSheet();
    return OperatorResult::success(flowReport());
  }
  if (v == "flow.end") {
    if (!store_.endFlow()) return OperatorResult::failure("nothing is open over the page");
    return OperatorResult::success(flowReport());
  }
  return std::nullopt;
}

}  // namespace tavorin
