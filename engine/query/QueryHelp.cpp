#include "engine/query/QueryHelp.h"

namespace nvadmin::engine {
namespace {

constexpr std::string_view kLines[] = {
    "verb [DICT] file ['id' ...] [WITH criteria] [BY field ...] [columns] [options]",
    "",
    "Verbs     LIST SORT            a report; SORT orders by item ID",
    "          SELECT SSELECT       a list for the next sentence; SSELECT orders",
    "          PSELECT              by item ID, PSELECT is SELECT",
    "          COUNT                how many items",
    "          QSELECT file id ['id' ...] [attribute]   values in items as a list",
    "Criteria  WITH [EVERY|NO] field [operator] value ... [AND|OR ...]",
    "          WITHOUT field ...    as WITH NO;  WITH field   has any value",
    "          brackets group; AND binds before OR, OR before a second WITH",
    "Operators =  #  <  >  <=  >=   or EQ NE LT GT LE GE, BEFORE, AFTER, NOT",
    "          BETWEEN a b          a and b belong to it",
    "          LIKE UNLIKE          patterns: nN digits, nA letters, nX anything,",
    "                               0N 0A 0X any number of them, ... anything",
    "Values    'x' \"x\" \\x\\, numbers, a bare word; several mean any. With = and #",
    "          x] begins with x, [x ends with x, [x] holds x. Case counts.",
    "Order     BY BY-DSND field     by the first value, later fields break ties",
    "          BY-EXP BY-EXP-DSND   an item once for each of its values",
    "Columns   field, TOTAL field, BREAK-ON field [\"text\"]",
    "Options   ID-SUPP, HEADING \"text\", FOOTING \"text\", (letters)",
    "          SAMPLE n             the first n only",
    "          SAVING [UNIQUE] field   a list of the values of a field (selects)",
    "No effect A AN ANY ARE FILE FOR IN ITEM ITEMS OF THAT THE",
    "",
    "In the demo account:",
    "  :LIST CUSTOMERS WITH COUNTRY = \"GB\" AND CITY = \"York\" \"Leeds\" NAME CITY",
    "  :SORT PRODUCTS WITH CATEGORY LIKE \"G...\" BY-DSND STOCK NAME TOTAL STOCK",
    "  :LIST CUSTOMERS WITH SINCE BETWEEN 01/01/2020 06/30/2020 NAME SINCE",
    "  :COUNT ORDERS WITH EVERY QTY > 20",
    "  :SSELECT ORDERS WITH STATUS = \"Open\" SAVING UNIQUE CUSTOMER",
    "  :SORT ORDERS BY-EXP-DSND QTY SAMPLE 5 PRODUCT QTY",
    "  :QSELECT ORDERS 10013 '10020' PRODUCT",
};

}  // namespace

std::span<const std::string_view> QueryHelp() { return kLines; }

}  // namespace nvadmin::engine
