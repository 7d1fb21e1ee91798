#include "xcsp/XMLParser.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <sstream>
#include <string>

#include "impl/utilities.h"
#include "unit/xcsp_recording_callback.h"

using namespace CSPXMLParser;
using zelk_test::xcsp_recording_callback;

namespace {

typedef XMLParser_libxml2<CSPParserCallback, DefaultASTFactory> reader;

// The events of one parse, the message of its exception and what went to
// standard output and standard error.
struct outcome { std::string events, error, out, err; };

outcome read_document(const std::string& document) {
  xcsp_recording_callback callback;
  std::string error;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  try {
    reader parser(callback);
    std::istringstream in(document);
    EXPECT_EQ(parser.parse(in), 0);
  } catch (const std::exception& e) {
    error = e.what();
  }
  // The elements of a braced list are evaluated in order: standard output first.
  return {callback.transcript(), error, testing::internal::GetCapturedStdout(),
          testing::internal::GetCapturedStderr()};
}

//==== One tiny document per message ============================================

// The domain D = {0, 1} and the variables X and Y over it.
const std::string head =
    "<instance><domains nbDomains='1'><domain name='D' nbValues='2'>0..1</domain></domains>"
    "<variables nbVariables='2'><variable name='X' domain='D'/><variable name='Y' domain='D'/></variables>";
const std::string all_different = "arity='2' scope='X Y' reference='global:alldifferent'";
const std::string pairs = "arity='2' nbTuples='1' semantics='supports'";

std::string instance(const std::string& body) { return "<instance>" + body + "</instance>"; }
std::string domain(const std::string& attributes, const std::string& values) {
  return instance("<domains nbDomains='1'><domain " + attributes + ">" + values + "</domain></domains>");
}
std::string variable(const std::string& attributes) {
  return head + "<variables nbVariables='1'><variable " + attributes + "/></variables></instance>";
}
std::string relation(const std::string& attributes, const std::string& tuples) {
  return instance("<relations nbRelations='1'><relation name='R' " + attributes + ">" + tuples +
                  "</relation></relations>");
}
std::string predicate(const std::string& parameters, const std::string& expression) {
  return instance("<predicates nbPredicates='1'><predicate name='P'><parameters>" + parameters +
                  "</parameters><expression>" + expression + "</expression></predicate></predicates>");
}
std::string constraint(const std::string& attributes, const std::string& content) {
  return head + "<constraints nbConstraints='1'><constraint name='C' " + attributes + ">" + content +
         "</constraint></constraints></instance>";
}
std::string with_parameters(const std::string& reference, const std::string& parameters) {
  return constraint("arity='2' scope='X Y' reference='" + reference + "'",
                    "<parameters>" + parameters + "</parameters>");
}
std::string alldiff(const std::string& p) { return with_parameters("global:alldifferent", p); }
std::string wsum(const std::string& p) { return with_parameters("global:weightedsum", p); }

const struct {
  std::string document;
  const char* message;
} bad_documents[] = {
    {variable("name='D' domain='D'"), "symbol D is defined twice"},
    {variable("name='Z' domain='E'"), "symbol E is undefined"},
    {variable("name='Z' domain='X'"), "symbol X doesn't have the expected type"},
    {constraint("arity='1' scope='D' reference='global:element'", ""), "symbol D doesn't have the expected type"},
    {alldiff("[ X D ]"), "symbol D doesn't have the expected type"},
    {constraint("arity='2' scope='X Y' reference='Global:Among'", ""), "symbol Global:Among is undefined"},
    {constraint("arity='2' scope='X Y' reference='R9'", ""), "symbol R9 is undefined"},
    {"<domains nbDomains='0'/>", "tag has no parent but it should have one"},
    {instance("<instance/>"), "tag should have no parent"},
    {instance("<domain name='D' nbValues='1'>1</domain>"), "wrong parent for tag"},
    {instance("<presentation><x/></presentation>"), "this element must not contain any element"},
    {predicate("int <i>1</i>", ""), "this element must not contain any element"},
    {instance("hello"), "<instance> tag should not have meaningful text"},
    {alldiff("<list>%</list>"), "<list> tag should not have meaningful text"},
    {alldiff("X ; Y"), "<parameters> tag should not have meaningful text"},
    {instance("<parameters/>"), "unexpected <parameters> tag"},
    {"<parameters/>", "unexpected <parameters> tag"},
    {instance("<domains nbDomains='0'><expression/></domains>"), "unexpected <expression> tag"},
    {instance("<domains/>"), "expected attribute nbDomains for tag <domains>"},
    {instance("<domains nbDomains='two'/>"), "expected attribute nbDomains for tag <domains>"},
    {domain("name='D'", "1"), "expected attribute nbValue for tag <domain>"},
    {domain("nbValues='1'", "1"), "expected attribute name for tag <domain>"},
    {instance("<variables/>"), "expected attribute nbVariables for tag <variables>"},
    {variable("name='Z'"), "expected attribute domain for tag <variable>"},
    {instance("<relations/>"), "expected attribute nbRelation for tag <relations>"},
    {instance("<predicates/>"), "expected attribute nbPredicate for tag <predicates>"},
    {instance("<constraints/>"), "expected attribute nbConstraints for tag <constraints>"},
    {relation("nbTuples='0' semantics='supports'", ""), "expected attribute arity for tag <relation>"},
    {relation("arity='1' nbTuples='0'", ""), "expected attribute semantics for tag <relation>"},
    {relation("arity='1' nbTuples='0' semantics='soft'", ""), "expected attribute defaultCost for tag <relation>"},
    {constraint("scope='X' reference='global:element'", ""), "expected attribute arity for tag <constraint>"},
    {constraint("arity='1' reference='global:element'", ""), "expected attribute scope for tag <constraint>"},
    {alldiff("<var/>"), "expected attribute name for tag <var>"},
    {wsum("<dict><entry/></dict>"), "expected attribute key for tag <entry>"},
    {relation("arity='0' nbTuples='0' semantics='supports'", ""), "arity must be >0"},
    {relation("arity='1' nbTuples='0' semantics='allowed'", ""), "unknown semantics for tag <relation>"},
    {relation(pairs, "5:1 2"), "unexpected colon (':') in relation"},
    {relation("arity='2' nbTuples='1' semantics='soft' defaultCost='1'", "5 6:1 2"),
     "unexpected colon (':') in relation"},
    {relation(pairs, "1|"), "unexpected pipe ('|') in relation"},
    {relation(pairs, "1 2 3|"), "missing pipe ('|') in relation"},
    {relation(pairs, "1 x"), "failed to read integer"},
    {relation(pairs, "1 2|3"), "last tuple is incomplete !"},
    {relation(pairs, "1 2|3 4"), "effective number of tuples doesn't match the announced number"},
    {predicate("int X int", "<functional>X</functional>"), "missing formal parameter name after type"},
    {predicate("int X", "<functional>foo(X)</functional>"), "unknown function symbol"},
    {predicate("int X", "<functional>add(X,Y)</functional>"), "undefined variable found in expression"},
    {constraint(all_different, "<expression><functional>eq(X,Y)</functional></expression>"),
     "expressions not yet suported as effective parameters"},
    {alldiff("<i>1 2</i>"), "invalid integer in <i> element"},
    {domain("name='D' nbValues='1'", "5.."), "invalid integer in <domain> element"},
    {alldiff("<nil> </nil>"), "<nil/> tag must not have any text"},
    {wsum("{ /coef 2 X }"), "missing key in dictionary"},
    {wsum("{ /coef /var X }"), "missing value in dictionary"},
    {wsum("{ /coef 1 /coef 2 }"), "multiple assignments to the same key in dictionary"},
    {alldiff("X 1 /coef Y"), "dictionary key outside a dictionary"},
    // The key order of the weighted sum does not stay for the next constraint.
    {wsum("[ ]</parameters></constraint><constraint name='B' " + all_different + "><parameters>{ 1 2 }"),
     "no conventional key order defined for this dictionary"},
    {wsum("{ 2 }"), "not enough values in dictionary defined with conventional order"},
    {constraint(all_different, "<i>3</i>"), "constraint parameters doesn't appear to be a list"},
    {alldiff("</parameters><parameters>"), "internal error while handling constraint parameters"},
    {alldiff("<list> X ] </list>"), "unmatched ']'"},
    {alldiff("[ X } ]"), "unmatched '}'"},
    {alldiff("[ X Y"), "missing ']' before </parameters>"},
    {wsum("[ { 2 X "), "missing '}' before </parameters>"},
};

TEST(xcsp_reader, one_document_per_message) {
  for (const auto& c : bad_documents) {
    outcome result = read_document(c.document);
    EXPECT_EQ(result.error, c.message) << c.document;
    EXPECT_EQ(result.out, "Exception at line 1\n") << c.document;
  }
}

//==== A whole document ==========================================================

TEST(xcsp_reader, whole_document_event_by_event) {
  outcome result = read_document(
      "<?xml version='1.0'?>\n<instance>\n<presentation maxConstraintArity='2'/>\n"
      "<domains nbDomains='1'><domain name='D' nbValues='6'>1 3..5 8</domain></domains>\n"
      "<variables nbVariables='2'><variable name='X' domain='D'/><variable name='Y2' domain='D'/></variables>\n"
      "<relations nbRelations='3'>\n"
      "<relation name='R0' arity='2' nbTuples='2' semantics='supports'>1 2|3 4</relation>\n"
      "<relation name='R1' arity='2' nbTuples='2' semantics='conflicts'>1 2|3 4|</relation>\n"
      "<relation name='R2' arity='2' nbTuples='3' semantics='soft' defaultCost='7'>0 0|5:1 2|3 4</relation>\n"
      "</relations>\n<predicates nbPredicates='3'>\n"
      "<predicate name='P0'><parameters>int A int B</parameters>\n"
      "<expression><functional>add( A , mul(2,B) )</functional></expression></predicate>\n"
      "<predicate name='Global:P1'><parameters>int B</parameters>"
      "<expression><functional>B</functional></expression></predicate>\n"
      "<predicate name='P2'><parameters>int A</parameters>"
      "<expression><infix>A + 1</infix><postfix>A 1 add</postfix></expression></predicate>\n"
      "</predicates>\n<constraints nbConstraints='6'>\n"
      "<constraint name='C0' arity='2' scope='X Y2' reference='R1'/>\n"
      "<constraint name='C1' arity='2' scope='X Y2' reference='P0'><parameters>[ X -3 ]\nY2</parameters>"
      // Unknown elements are skipped with a warning; what they hold is still read.
      "</constraint>\n<constraint name='C2' arity='2' scope='X Y2' reference='Global:AllDifferent'><parameters>"
      "<list><var name='X'/><i>+3</i></list><wrap><var name='Y2'/> free text </wrap></parameters>"
      "<extension>ignored</extension></constraint>\n"
      "<constraint name='C3' arity='2' scope='Y2 X' reference='global:weightedsum'>\n"
      "<parameters>[ { /coef 2 /var X } { -1 Y2 } ] <ge/> 12X</parameters></constraint>\n"
      // A symbol of the document spelt with the global prefix keeps its case.
      "<constraint name='C4' arity='1' scope='X' reference='Global:P1'/>\n"
      "<constraint name='C5' arity='2' scope='X Y2' reference='global:cumulative'><parameters>"
      "{ 1 <nil/> 3 4 } { 1 2 3 4 5 }<dict><entry key='coef'><i>2</i></entry><entry key='var'>"
      "<var name='X'/></entry></dict> <eq/><ne/><ge/><gt/><le/><lt/></parameters></constraint>\n"
      "</constraints>\n</instance>\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.events,
            "beginInstance ?\nbeginDomainsSection 1\nbeginDomain D 0 6\n"
            "addDomainValue 1\naddDomainValue 3 .. 5\naddDomainValue 8\nendDomain\nendDomainsSection\n"
            "beginVariablesSection 2\naddVariable X 0 D 0\naddVariable Y2 1 D 0\nendVariablesSection\n"
            "beginRelationsSection 3\nbeginRelation R0 0 2 2 1\ntuple 1 2\ntuple 3 4\nendRelation\n"
            "beginRelation R1 1 2 2 0\ntuple 1 2\ntuple 3 4\nendRelation\n"
            "beginRelation R2 2 2 3 2\ntuple 0 0 cost 7\ntuple 1 2 cost 5\ntuple 3 4 cost 5\nendRelation\n"
            "endRelationsSection\nbeginPredicatesSection 3\n"
            "beginPredicate P0 0\naddFormalParameter 0 A int\naddFormalParameter 1 B int\n"
            "predicateExpression add(A/$0,mul(2,B/$1))\nendPredicate\n"
            "beginPredicate Global:P1 1\naddFormalParameter 0 B int\npredicateExpression B/$0\nendPredicate\n"
            "beginPredicate P2 2\naddFormalParameter 0 A int\nendPredicate\n"
            "endPredicatesSection\nbeginConstraintsSection 6\n"
            "beginConstraint C0 0 2 R1 0 1 [ X/$0 Y2/$1 ]\nconstraintParameters [ X/$0 Y2/$1 ]\nendConstraint\n"
            "beginConstraint C1 1 2 P0 1 0 [ X/$0 Y2/$1 ]\nconstraintParameters [ [ X/$0 -3 ] Y2/$1 ]\n"
            "endConstraint\n"
            "beginConstraint C2 2 2 global:alldifferent 2 0 [ X/$0 Y2/$1 ]\n"
            "constraintParameters [ [ X/$0 3 ] Y2/$1 ]\nendConstraint\n"
            "beginConstraint C3 3 2 global:weightedsum 2 5 [ Y2/$1 X/$0 ]\n"
            "constraintParameters [ [ { /coef 2 /var X/$0 } { /coef -1 /var Y2/$1 } ] >= 12 X/$0 ]\n"
            "endConstraint\n"
            "beginConstraint C4 4 1 Global:P1 1 1 [ X/$0 ]\nconstraintParameters [ X/$0 ]\nendConstraint\n"
            "beginConstraint C5 5 2 global:cumulative 2 4 [ X/$0 Y2/$1 ]\n"
            "constraintParameters [ { /end 3 /height 4 /origin 1 } { /duration 2 /end 3 /height 4 /origin 1 } "
            "{ /coef 2 /var X/$0 } == != >= > <= < ]\nendConstraint\n"
            "endConstraintsSection\nendInstance\n");
  EXPECT_EQ(result.out,
            "WARNING: ignoring infix expression: A + 1\nWARNING: ignoring postfix expression: A 1 add\n");
  EXPECT_EQ(result.err, "WARNING: unknown tag <wrap> will be ignored\n");
}

// libxml2 hands text over in pieces; the reader sees a word only once it is whole.
TEST(xcsp_reader, word_over_three_pieces) {
  xcsp_recording_callback callback;
  XMLParser<CSPParserCallback, DefaultASTFactory, UTF8String, AttributeList> parser(callback);
  const char* attributes[] = {"nbDomains", "1", nullptr, "name", "D", "nbValues", "3", nullptr};
  auto list = [&](int at) { return AttributeList(reinterpret_cast<const unsigned char**>(attributes + at)); };
  parser.startDocument();
  parser.startElement(UTF8String("instance"), AttributeList());
  parser.startElement(UTF8String("domains"), list(0));
  parser.startElement(UTF8String("domain"), list(3));
  for (const char* piece : {"1", "2", "3 4", "..", "6", " 7", "8"}) parser.characters(UTF8String(piece));
  parser.endElement(UTF8String("domain"));
  EXPECT_EQ(callback.transcript(), "beginDomainsSection 1\nbeginDomain D 0 3\naddDomainValue 123\n"
                                   "addDomainValue 4 .. 6\naddDomainValue 78\nendDomain\n");
}

// The 4096-byte chunks and libxml2's own cuts fall elsewhere with each shift of
// the document; the events must not change.
TEST(xcsp_reader, chunk_boundaries_do_not_change_the_events) {
  std::string tuples;
  for (int i = 0; i < 1200; ++i)
    tuples += std::to_string(i) + " " + std::to_string(1000000 + i) + (i % 3 ? "|" : " | ");
  const std::string document = relation("arity='2' nbTuples='1200' semantics='supports'", tuples);
  const outcome reference = read_document(document);
  ASSERT_EQ(reference.error, "");
  for (int shift = 1; shift < 40; ++shift) {
    outcome shifted = read_document("<!--" + std::string(std::size_t(shift * 7), 'x') + "-->" + document);
    EXPECT_EQ(shifted.error, "") << shift;
    EXPECT_TRUE(shifted.events == reference.events) << shift;
  }
}

//==== Exceptions, libxml2 and documents out of the ordinary =====================

// Raises `error` from a callback on line 3; returns what went to standard output.
template <class Exception>
std::string raise_in_callback(const Exception& error) {
  struct throwing_callback : xcsp_recording_callback {
    std::function<void()> raise;
    void beginDomain(const std::string&, int, int) override { raise(); }
  } callback;
  callback.raise = [&] { throw error; };
  reader parser(callback);
  std::istringstream in("\n\n" + domain("name='D' nbValues='1'", "1"));
  testing::internal::CaptureStdout();
  EXPECT_THROW(parser.parse(in), Exception);
  return testing::internal::GetCapturedStdout();
}

// The exception crosses libxml2's C frames only as a value, and keeps its type.
TEST(xcsp_reader, callback_exceptions_keep_their_type) {
  EXPECT_EQ(raise_in_callback(zelk::parse_error("bad domain")), "Exception at line 3\n");
  EXPECT_EQ(raise_in_callback(std::bad_alloc()), "");
  EXPECT_EQ(raise_in_callback(42), "");
}

TEST(xcsp_reader, malformed_and_empty_documents) {
  // libxml2 reports a malformed document itself; the events stop where it stopped.
  outcome result = read_document("<instance><presentation name='a'/><domains nbDomains='1'></instance>");
  EXPECT_EQ(result.error + result.events, "beginInstance a\nbeginDomainsSection 1\n");
  EXPECT_NE(result.err, "");
  result = read_document("");
  EXPECT_EQ(result.events + result.error, "");
}

// Declarations, entities, processing instructions and CDATA: libxml2's default
// handlers for them would take the reader for their parser context.
TEST(xcsp_reader, document_type_declarations) {
  outcome result = read_document(
      "<?xml version='1.0'?>\n<!DOCTYPE instance SYSTEM 'xcsp.dtd' [\n<!ELEMENT instance ANY>\n"
      "<!ATTLIST presentation name CDATA 'fixed' format CDATA #IMPLIED>\n<!ENTITY values '1..3'>\n"
      "<!ENTITY % pe 'x'>\n<!NOTATION note SYSTEM 'note'>\n<!ENTITY picture SYSTEM 'p.gif' NDATA note>\n]>\n"
      "<?solver hint?>\n<instance><presentation name='a&lt;b'/>"
      "<domains nbDomains='1'><domain name='D' nbValues='3'><![CDATA[1..3]]> &#52;</domain></domains>"
      "</instance>");
  EXPECT_EQ(result.error + result.events,
            "beginInstance a<b\nbeginDomainsSection 1\nbeginDomain D 0 3\naddDomainValue 1 .. 3\naddDomainValue 4\n"
            "endDomain\nendDomainsSection\nendInstance\n");
  result = read_document("<!DOCTYPE instance [ <!ENTITY v '4'> ]><instance><domains nbDomains='1'>"
                         "<domain name='D' nbValues='1'>&v;</domain></domains></instance>");
  EXPECT_EQ(result.events.find("addDomainValue 4"), std::string::npos);
}

}  // namespace
