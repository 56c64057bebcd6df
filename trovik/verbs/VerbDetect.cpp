#include "trovik/jobs/JobSetup.h"
#include "trovik/jobs/Types.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>

namespace trovik {

int detectScene(Session& session, const DetectOptions& options) {
  Console& console = session.console();
  const UID type = findType(*options.type);
  JobSetup setup(type, session.detection());
  setup.setScene(*options.scene);
  setup.setAll(options.sets);
  setup.detect();
  const Path scene(setup.job()->GetParameterOrOption(p_Scene, true, true));
  const std::vector<FilledParameter> filled = setup.filled();
  const bool sequence = !setup.job()->GetParameterOrOption(sceneNameFormat, true, true).empty();
  const SequenceAccount account = setup.sequence();

  if (options.json) {
    Json document = jsonOfKind("detect");
    document["type"] = typeTitle(type);
    document["scene"] = scene.Text();
    document["sequence"] = sequence;
    document["reason"] = textOrNull(account.reason);
    document["hint"] = textOrNull(account.hint);
    document["filled"] = Json::object();
    for (const FilledParameter& parameter : filled) {
      document["filled"][parameter.name] = parameter.value;
    }
    console.print(jsonDocument(document));
    return exitGood;
  }
  std::size_t width = 0;
  for (const FilledParameter& parameter : filled) {
    width = std::max(width, displayWidth(console.shown(parameter.name)));
  }
  std::string text;
  for (const FilledParameter& parameter : filled) {
    text += padded(console.shown(parameter.name), width) + "  " + console.shown(parameter.value) + '\n';
  }
  if (!account.reason.empty()) {
    text += (sequence ? "" : "no scene sequence: ") + console.shown(account.reason) + '\n';
  }
  if (!account.hint.empty()) {
    text += "hint: " + console.shown(account.hint) + '\n';
  }
  console.print(text);
  return exitGood;
}

} // namespace trovik
