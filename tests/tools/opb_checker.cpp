// Independent checker of OPB answers, sharing no code with the solver.
//
//   opb_checker FILE.opb < solver_output
//
// Reads the instance (objective "max:" or "min:", named or unnamed constraints,
// products of literals x and ~x, relations >=, <=, =, <, >, "*" line comments
// and "/* */" block comments), then every "v" line of the output: "-name" sets
// the variable to 0, "name" to 1, and every variable of the instance must be
// set exactly once. Each model must satisfy every constraint; an "o" line before
// a model must equal the objective on that model, and the "o" values must improve
// strictly in the direction of the objective. Exits 0 when all holds and there
// was at least one model; otherwise prints what failed and exits 1.
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct term {
  long long coefficient = 0;
  std::vector<std::pair<bool, int>> literals;  // (positive, variable index)
};

struct linear_constraint {
  std::vector<term> terms;
  std::string relation;
  long long rhs = 0;
  int line = 0;
  std::string name;
};

struct instance {
  std::map<std::string, int> index;
  std::vector<std::string> names;
  std::vector<linear_constraint> constraints;
  bool has_objective = false;
  bool maximize = false;
  std::vector<term> objective;
};

[[noreturn]] void fail(const std::string& message) {
  std::cout << "opb_checker: " << message << std::endl;
  std::exit(1);
}

class tokenizer {
 public:
  explicit tokenizer(std::string text) : m_text(std::move(text)) {}

  // The next token, "" at the end. Integers keep their sign when it is glued on.
  std::string next() {
    skip();
    if (m_pos >= m_text.size()) return "";
    m_start_line = m_line;
    const char c = m_text[m_pos];
    if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
      std::size_t end = m_pos;
      while (end < m_text.size() &&
             (std::isalnum(static_cast<unsigned char>(m_text[end])) || m_text[end] == '_'))
        ++end;
      return take(end);
    }
    if (std::isdigit(static_cast<unsigned char>(c))) return take(digits_end(m_pos));
    if (c == '+' || c == '-') {
      // A sign and its number may stand apart: "+ 3" is the integer +3.
      const std::size_t sign_pos = m_pos;
      const int sign_line = m_line;
      ++m_pos;
      skip();
      if (m_pos < m_text.size() && std::isdigit(static_cast<unsigned char>(m_text[m_pos]))) {
        const std::size_t end = digits_end(m_pos);
        std::string token = std::string(1, c) + m_text.substr(m_pos, end - m_pos);
        m_pos = end;
        return token;
      }
      m_pos = sign_pos + 1;
      m_line = sign_line;
      return std::string(1, c);
    }
    if ((c == '<' || c == '>') && m_pos + 1 < m_text.size() && m_text[m_pos + 1] == '=')
      return take(m_pos + 2);
    return take(m_pos + 1);
  }
  int line() const { return m_start_line; }

 private:
  void skip() {
    for (;;) {
      while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos]))) {
        if (m_text[m_pos] == '\n') ++m_line;
        ++m_pos;
      }
      if (m_pos < m_text.size() && m_text[m_pos] == '*') {
        while (m_pos < m_text.size() && m_text[m_pos] != '\n') ++m_pos;
        continue;
      }
      if (m_text.compare(m_pos, 2, "/*") == 0) {
        const std::size_t end = m_text.find("*/", m_pos + 2);
        if (end == std::string::npos) fail("unterminated comment in the instance");
        for (std::size_t i = m_pos; i < end; ++i)
          if (m_text[i] == '\n') ++m_line;
        m_pos = end + 2;
        continue;
      }
      return;
    }
  }
  std::size_t digits_end(std::size_t from) const {
    while (from < m_text.size() && std::isdigit(static_cast<unsigned char>(m_text[from]))) ++from;
    return from;
  }
  std::string take(std::size_t end) {
    std::string token = m_text.substr(m_pos, end - m_pos);
    m_pos = end;
    return token;
  }

  std::string m_text;
  std::size_t m_pos = 0;
  int m_line = 1;
  int m_start_line = 1;
};

bool is_integer(const std::string& token) {
  if (token.empty()) return false;
  std::size_t i = (token[0] == '+' || token[0] == '-') ? 1 : 0;
  if (i == token.size()) return false;
  for (; i < token.size(); ++i)
    if (!std::isdigit(static_cast<unsigned char>(token[i]))) return false;
  return true;
}

bool is_identifier(const std::string& token) {
  return !token.empty() &&
         (std::isalpha(static_cast<unsigned char>(token[0])) || token[0] == '_');
}

bool is_relation(const std::string& token) {
  return token == ">=" || token == "<=" || token == "=" || token == "<" || token == ">";
}

int variable_index(instance& inst, const std::string& name) {
  const auto found = inst.index.find(name);
  if (found != inst.index.end()) return found->second;
  const int i = int(inst.names.size());
  inst.index.emplace(name, i);
  inst.names.push_back(name);
  return i;
}

// Reads terms up to the token that ends the sum, which it returns.
std::string read_terms(tokenizer& tok, std::string token, instance& inst, std::vector<term>& terms) {
  while (is_integer(token) && (token[0] == '+' || token[0] == '-')) {
    term t;
    t.coefficient = std::stoll(token);
    token = tok.next();
    for (;;) {
      bool positive = true;
      if (token == "~") {
        positive = false;
        token = tok.next();
        if (!is_identifier(token)) fail("line " + std::to_string(tok.line()) + ": name expected after ~");
      } else if (!is_identifier(token) || token == "min" || token == "max") {
        break;
      }
      t.literals.emplace_back(positive, variable_index(inst, token));
      token = tok.next();
    }
    if (t.literals.empty()) fail("line " + std::to_string(tok.line()) + ": a term without literal");
    terms.push_back(std::move(t));
  }
  if (terms.empty()) fail("line " + std::to_string(tok.line()) + ": a sum without term");
  return token;
}

instance read_instance(const char* file_name) {
  std::ifstream in(file_name);
  if (!in) fail(std::string("can't open ") + file_name);
  std::stringstream buffer;
  buffer << in.rdbuf();
  tokenizer tok(buffer.str());
  instance inst;
  std::string token = tok.next();
  if (token == "max" || token == "min") {
    inst.has_objective = true;
    inst.maximize = token == "max";
    if (tok.next() != ":") fail("':' expected after the objective keyword");
    token = read_terms(tok, tok.next(), inst, inst.objective);
    if (token != ";") fail("';' expected after the objective");
    token = tok.next();
  }
  while (!token.empty()) {
    linear_constraint c;
    c.line = tok.line();
    if (is_identifier(token)) {
      c.name = token;
      if (tok.next() != ":") fail("line " + std::to_string(c.line) + ": ':' expected after a name");
      token = tok.next();
    }
    token = read_terms(tok, token, inst, c.terms);
    if (!is_relation(token)) fail("line " + std::to_string(c.line) + ": relation expected");
    c.relation = token;
    token = tok.next();
    if (!is_integer(token)) fail("line " + std::to_string(c.line) + ": right-hand side expected");
    c.rhs = std::stoll(token);
    if (tok.next() != ";") fail("line " + std::to_string(c.line) + ": ';' expected");
    inst.constraints.push_back(std::move(c));
    token = tok.next();
  }
  return inst;
}

long long evaluate(const std::vector<term>& terms, const std::vector<int>& model) {
  long long sum = 0;
  for (const term& t : terms) {
    bool all = true;
    for (const auto& [positive, var] : t.literals) all = all && (model[std::size_t(var)] == 1) == positive;
    if (all) sum += t.coefficient;
  }
  return sum;
}

bool holds(const linear_constraint& c, long long lhs) {
  if (c.relation == ">=") return lhs >= c.rhs;
  if (c.relation == "<=") return lhs <= c.rhs;
  if (c.relation == "=") return lhs == c.rhs;
  if (c.relation == "<") return lhs < c.rhs;
  return lhs > c.rhs;
}

std::vector<int> read_model(const instance& inst, const std::string& line, int line_number) {
  std::vector<int> model(inst.names.size(), -1);
  std::istringstream words(line.substr(1));
  std::string word;
  while (words >> word) {
    const bool zero = word[0] == '-';
    const std::string name = zero ? word.substr(1) : word;
    const auto found = inst.index.find(name);
    if (found == inst.index.end())
      fail("output line " + std::to_string(line_number) + ": unknown variable " + name);
    if (model[std::size_t(found->second)] != -1)
      fail("output line " + std::to_string(line_number) + ": " + name + " set twice");
    model[std::size_t(found->second)] = zero ? 0 : 1;
  }
  for (std::size_t i = 0; i < model.size(); ++i)
    if (model[i] == -1)
      fail("output line " + std::to_string(line_number) + ": no value for " + inst.names[i]);
  return model;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " FILE.opb < solver_output\n";
    return 2;
  }
  const instance inst = read_instance(argv[1]);
  std::string line;
  int line_number = 0;
  int models = 0;
  bool pending_objective = false;
  long long objective_value = 0;
  bool have_previous = false;
  long long previous = 0;
  while (std::getline(std::cin, line)) {
    ++line_number;
    if (line.rfind("o ", 0) == 0) {
      objective_value = std::stoll(line.substr(2));
      pending_objective = true;
      if (!inst.has_objective) fail("output line " + std::to_string(line_number) + ": an o line without objective");
      if (have_previous && (inst.maximize ? objective_value <= previous : objective_value >= previous))
        fail("output line " + std::to_string(line_number) + ": objective " +
             std::to_string(objective_value) + " does not improve on " + std::to_string(previous));
      have_previous = true;
      previous = objective_value;
      continue;
    }
    if (line != "v" && line.rfind("v ", 0) != 0) continue;
    const std::vector<int> model = read_model(inst, line, line_number);
    ++models;
    for (const linear_constraint& c : inst.constraints) {
      const long long lhs = evaluate(c.terms, model);
      if (!holds(c, lhs))
        fail("output line " + std::to_string(line_number) + ": constraint of line " +
             std::to_string(c.line) + (c.name.empty() ? "" : " (" + c.name + ")") +
             " is violated: sum " + std::to_string(lhs) + " " + c.relation + " " +
             std::to_string(c.rhs) + " fails");
    }
    if (pending_objective) {
      const long long value = evaluate(inst.objective, model);
      if (value != objective_value)
        fail("output line " + std::to_string(line_number) + ": o " + std::to_string(objective_value) +
             " but the objective of the model is " + std::to_string(value));
      pending_objective = false;
    }
  }
  if (models == 0) fail("no v line in the output");
  if (pending_objective) fail("an o line without a model after it");
  std::cout << "opb_checker: " << models << " model(s) checked\n";
  return 0;
}
