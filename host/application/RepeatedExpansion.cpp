#include "host/application/Expansion.h"

#include "host/application/ParameterCommands.h"
#include "host/foundation/Exception.h"

#include <list>
#include <map>
#include <utility>

// The files that a job of a million frames must leave are the same template a
// million times, of which mostly one reference differs from frame to frame. To
// read the template, to ask for the folder and the scene and to cut the scene's
// name out of its path again each time costs twenty times as much as the text.
//
// So the text is read once, into pieces: plain text, and references with their
// commands. Each name keeps what was answered for it. For the next result every
// name is asked again, since only the job knows which of its answers depend on
// the frame, but with the short question (Ask), and only the pieces whose names
// have another answer are made anew. Commands that make a file do so each time.
//
// What is refused, and with which words, is settled in one place: whatever is
// unusual here (a name that nobody answers, a circle, a text that is long, a
// command that cannot work with its value) ends the plan, and the plain
// expansion says what is to be said, now and from then on. The bounds below
// keep what the plan does far below the plain expansion's own limits, which the
// plan therefore need not count.

namespace {

constexpr std::size_t k_LongestText = std::size_t{64} << 10;
constexpr std::size_t k_MostReferences = 64;
constexpr std::size_t k_MostCommands = 64;

} // namespace

class RepeatedExpansion::Plan {
public:
  explicit Plan(const ExpansionSource& source) : m_Source(source) {}

  /// False where the plain expansion has the say.
  bool Begin(const String& text) { return Read(text, m_Whole); }

  bool Next() {
    ++m_Turn;
    bool changed = false;
    return Refresh(m_Whole, changed);
  }

  const String& Text() const { return m_Whole.Text; }

private:
  struct Name;

  struct Piece {
    Name* Of = nullptr; // of plain text null
    std::vector<CommandCall> Calls;
    bool MakesFile = false;
    String Text;
  };

  struct Template {
    std::vector<Piece> Pieces;
    String Text;
    bool IsMade = false;
  };

  struct Name {
    String Text;
    bool IsAnswered = false;
    ParameterAnswer Answer;
    Template Value; // where the answer has references of its own
    std::uint64_t Turn = 0;
    bool IsOpen = false;  // is being refreshed
    bool Changed = false; // in this turn

    const String& Result() const { return Answer.Expands ? Value.Text : Answer.Value; }
  };

  // Cuts a text into its pieces.
  bool Read(const String& text, Template& result) {
    result.Pieces.clear();
    result.IsMade = false;
    if (text.size() > k_LongestText) {
      return false;
    }
    const auto addPlain = [&result](String plain) {
      if (!plain.empty()) {
        result.Pieces.emplace_back().Text = std::move(plain);
      }
    };
    std::size_t position = 0;
    for (;;) {
      bool literal = false;
      const std::size_t found = FindReference(text, position, literal);
      const std::size_t plainEnd = found == String::npos ? text.size() : found - (literal ? 1 : 0);
      addPlain(text.substr(position, plainEnd - position));
      if (found == String::npos) {
        return true;
      }
      if (literal) {
        addPlain("$(");
        position = found + 2;
        continue;
      }
      Reference reference;
      ReferenceProblem problem;
      if (!ReadReference(text, found, reference, problem)) {
        return false;
      }
      m_Commands += reference.Calls.size();
      if (++m_References > k_MostReferences || m_Commands > k_MostCommands) {
        return false;
      }
      Piece& piece = result.Pieces.emplace_back();
      piece.Of = &Named(reference.Name);
      piece.Calls = std::move(reference.Calls);
      for (const CommandCall& call : piece.Calls) {
        piece.MakesFile = piece.MakesFile || ::MakesFile(call);
      }
      position = reference.End;
    }
  }

  Name& Named(const String& text) {
    const auto found = m_ByText.find(text);
    if (found != m_ByText.end()) {
      return *found->second;
    }
    Name& name = m_Names.emplace_back();
    name.Text = text;
    m_ByText.emplace(text, &name);
    return name;
  }

  // Brings a text up to date; `changed` becomes true where it is another one.
  bool Refresh(Template& whole, bool& changed) {
    bool differs = !whole.IsMade;
    for (Piece& piece : whole.Pieces) {
      if (piece.Of == nullptr) {
        continue;
      }
      if (!Refresh(*piece.Of)) {
        return false;
      }
      if (whole.IsMade && !piece.Of->Changed && !piece.MakesFile) {
        continue;
      }
      differs = true;
      piece.Text = piece.Of->Result();
      for (const CommandCall& call : piece.Calls) {
        piece.Text = ApplyCommand(call, piece.Text, piece.Of->Answer.Info);
        if (piece.Text.size() > k_LongestText) {
          return false;
        }
      }
    }
    if (differs) {
      whole.IsMade = true;
      whole.Text.clear();
      for (const Piece& piece : whole.Pieces) {
        whole.Text.append(piece.Text);
      }
      changed = true;
    }
    return whole.Text.size() <= k_LongestText;
  }

  bool Refresh(Name& name) {
    if (name.IsOpen) {
      return false; // a circle
    }
    if (name.Turn == m_Turn) {
      return true;
    }
    name.Turn = m_Turn;
    name.Changed = false;
    if (!Answer(name)) {
      return false;
    }
    if (name.Answer.Expands) {
      name.IsOpen = true;
      if (!Refresh(name.Value, name.Changed)) {
        return false;
      }
      name.IsOpen = false;
    }
    return true;
  }

  bool Answer(Name& name) {
    if (name.IsAnswered) {
      m_Asked.clear();
      if (!m_Source.Ask(name.Text, m_Asked) && name.Answer.Info == nullptr) {
        return false;
      }
      if (name.Answer.Own ? m_Asked == name.Answer.Value : m_Asked.empty()) {
        return true;
      }
    }
    name.Changed = true;
    if (name.IsAnswered && !m_Asked.empty()) {
      name.Answer.Value.swap(m_Asked);
      name.Answer.Own = true;
    } else {
      std::optional<ParameterAnswer> answer = m_Source.Find(name.Text);
      if (!answer) {
        return false;
      }
      name.Answer = std::move(*answer);
      name.IsAnswered = true;
    }
    return name.Answer.Value.size() <= k_LongestText &&
           (!name.Answer.Expands || Read(name.Answer.Value, name.Value));
  }

  const ExpansionSource& m_Source;
  Template m_Whole;
  std::list<Name> m_Names; // which stay where they are
  std::map<String, Name*> m_ByText;
  String m_Asked; // kept for its memory
  std::uint64_t m_Turn = 0;
  std::size_t m_References = 0; // that were read, those of changed values again
  std::size_t m_Commands = 0;
};

RepeatedExpansion::RepeatedExpansion(String text, ExpansionSource source)
    : m_Text(std::move(text)), m_Source(std::move(source)), m_Plan(std::make_unique<Plan>(m_Source)) {
  if (!m_Plan->Begin(m_Text)) {
    m_Plan.reset();
  }
}

RepeatedExpansion::~RepeatedExpansion() = default;

const String& RepeatedExpansion::Run() {
  if (m_Plan != nullptr) {
    std::unique_ptr<Plan> plan = std::move(m_Plan); // back only where all went well
    try {
      if (plan->Next()) {
        m_Plan = std::move(plan);
        return m_Plan->Text();
      }
    } catch (Exception* exception) {
      delete exception; // told below, with its place
    }
  }
  m_Plain = ExpandReferences(m_Text, m_Source);
  return m_Plain;
}
