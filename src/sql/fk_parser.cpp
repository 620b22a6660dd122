#include "sql/fk_parser.h"

#include "tk/log.h"

namespace qb {

namespace {

// The text between the first two back quotes at or after from; empty when
// there are not two. end receives the position after the closing quote.
std::wstring quoted_at(const std::wstring& text, std::size_t from, std::size_t& end) {
  const std::size_t open = text.find(L'`', from);
  if (open == std::wstring::npos) return {};
  // A back quote inside a name is doubled in MySQL's text.
  std::wstring name;
  std::size_t i = open + 1;
  for (; i < text.size(); ++i) {
    if (text[i] == L'`') {
      if (i + 1 < text.size() && text[i + 1] == L'`') {
        name += L'`';
        ++i;
        continue;
      }
      end = i + 1;
      return name;
    }
    name += text[i];
  }
  return {};
}

// The parenthesised list at or after from, parentheses included; end
// receives the position after the closing one. Back-quoted names may hold
// parentheses.
std::wstring list_at(const std::wstring& text, std::size_t from, std::size_t& end) {
  const std::size_t open = text.find(L'(', from);
  if (open == std::wstring::npos) return {};
  bool quoted = false;
  for (std::size_t i = open + 1; i < text.size(); ++i) {
    if (text[i] == L'`') quoted = !quoted;
    if (!quoted && text[i] == L')') {
      end = i + 1;
      return text.substr(open, end - open);
    }
  }
  return {};
}

std::wstring trimmed(std::wstring text) {
  const std::size_t first = text.find_first_not_of(L" \t\r,");
  if (first == std::wstring::npos) return {};
  const std::size_t last = text.find_last_not_of(L" \t\r,");
  return text.substr(first, last - first + 1);
}

}  // namespace

sql_fk_parser::sql_fk_parser(std::wstring table, const std::wstring& create_text) : table_(std::move(table)) {
  LOG(1, "sql_fk_parser::ctor(%s)", table_);
  std::size_t start = 0;
  while (start <= create_text.size()) {
    std::size_t end = create_text.find(L'\n', start);
    if (end == std::wstring::npos) end = create_text.size();
    chunks_.push_back(create_text.substr(start, end - start));
    start = end + 1;
  }
}

void sql_fk_parser::do_parse() {
  LOG(1, "sql_fk_parser::do_parse");
  LOG(1, "Got %d chunks", static_cast<int>(chunks_.size()));
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    LOG(1, "Processing FK chunk #%d", static_cast<int>(i));
    parse_chunk(chunks_[i]);
  }
}

void sql_fk_parser::parse_chunk(const std::wstring& chunk) {
  const std::size_t constraint = chunk.find(L"CONSTRAINT ");
  if (constraint == std::wstring::npos) {
    LOG(1, "CONSTRAINT is not found");
    return;
  }
  LOG(1, "CONSTRAINT is found at position %d", static_cast<int>(constraint));
  const std::size_t foreign = chunk.find(L" FOREIGN KEY", constraint);
  if (foreign == std::wstring::npos) {
    LOG(1, "FOREIGN KEY is not found");
    return;
  }
  LOG(1, "FOREIGN KEY is found at position %d", static_cast<int>(foreign));
  std::size_t after_name = 0;
  const std::wstring name = quoted_at(chunk, constraint, after_name);
  LOG(1, "Got FK name: %s", name);
  const std::size_t references = chunk.find(L"REFERENCES ", foreign);
  if (references == std::wstring::npos) {
    LOG(1, "REFERENCES is not found");
    return;
  }
  std::size_t after_fk = 0;
  const std::wstring fk_columns = list_at(chunk.substr(0, references), foreign, after_fk);
  LOG(1, "Got FK columns: %s", fk_columns);
  std::size_t after_table = 0;
  const std::wstring pk_table = quoted_at(chunk, references, after_table);
  LOG(1, "Got PK table: %s", pk_table);
  std::size_t after_pk = 0;
  const std::wstring pk_columns = list_at(chunk, after_table, after_pk);
  LOG(1, "Got PK columns: %s", pk_columns);
  if (name.empty() || pk_table.empty() || fk_columns.empty() || pk_columns.empty()) {
    LOG(2, "Foreign key text is not complete: %s", chunk);
    return;
  }
  std::wstring rule;
  if (!chunk.empty()) {
    LOG(1, "fk_info[length()-1]='%c'", chunk.back());
    if (after_pk < chunk.size()) rule = trimmed(chunk.substr(after_pk));
    if (!rule.empty()) LOG(1, "Got FK rule: %s", rule);
  }
  relationships_.push_back(
      udb_rel(name, std::wstring(), table_, pk_table, get_columns(fk_columns), get_columns(pk_columns), rule));
}

std::vector<std::wstring> sql_fk_parser::get_columns(const std::wstring& text) {
  std::vector<std::wstring> columns;
  std::wstring body = text;
  if (!body.empty() && body.front() == L'(') body.erase(0, 1);
  if (!body.empty() && body.back() == L')') body.pop_back();
  std::size_t pos = 0;
  while (pos < body.size()) {
    std::size_t end = 0;
    const std::size_t open = body.find(L'`', pos);
    std::wstring name;
    if (open != std::wstring::npos) {
      name = quoted_at(body, open, end);
    } else {
      // A bare name (no back quotes): up to the next comma.
      end = body.find(L',', pos);
      if (end == std::wstring::npos) end = body.size();
      name = trimmed(body.substr(pos, end - pos));
    }
    if (name.empty() && end == 0) break;
    LOG(1, "GOT FK COLUMN: %s", name);
    columns.push_back(name);
    const std::size_t comma = body.find(L',', end);
    if (comma == std::wstring::npos) break;
    pos = comma + 1;
  }
  return columns;
}

}  // namespace qb
