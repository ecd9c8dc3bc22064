// Verbs of the manifest whose part of the studio has not landed in this build. They
// answer "unhandled verb '<verb>'" until their group registers handlers; a verb
// moves from here to its group's register function when it does.
#include "app/service/OperatorService.hpp"

namespace tavorin {

void OperatorService::registerWaiting() {
}

}  // namespace tavorin
