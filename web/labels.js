// Which label belongs to which field of a form: the grid tells, since the markup doesn't. Pure. A field's
// label is the nearest text to its left in the same row, unless another field stands between; else the
// nearest text above it that begins in the same column.

const kRowPixels = 22;
const kColumnPixels = 9;
const kMostRowsAbove = 3;

const isText = (element) =>
  element.type === "label" && element.styleClass !== "title1" && element.text.trim().length > 1;
const isField = (element) => element.type !== "label" && element.type !== "unknown";

function labelAtLeft(elements, field) {
  let nearest = null;
  for (const element of elements) {
    if (!isText(element) && !isField(element)) continue;
    const sameRow = Math.abs(element.place.top - field.place.top) < kRowPixels / 2;
    if (!sameRow || element.place.left >= field.place.left) continue;
    if (!nearest || element.place.left > nearest.place.left) nearest = element;
  }
  return nearest && isText(nearest) ? nearest : null;
}

function labelAbove(elements, field) {
  let nearest = null;
  for (const element of elements) {
    if (!isText(element)) continue;
    const rowsAbove = (field.place.top - element.place.top) / kRowPixels;
    const sameColumn = Math.abs(element.place.left - field.place.left) <= kColumnPixels;
    if (!sameColumn || rowsAbove <= 0 || rowsAbove > kMostRowsAbove) continue;
    if (!nearest || element.place.top > nearest.place.top) nearest = element;
  }
  return nearest;
}

// Map from field to label, both elements of a form token.
export function labelsOfFields(elements) {
  const labels = new Map();
  for (const field of elements) {
    if (!["input", "select", "area"].includes(field.type) || field.inputType === "button") continue;
    const label = labelAtLeft(elements, field) ?? labelAbove(elements, field);
    if (label) labels.set(field, label);
  }
  return labels;
}
