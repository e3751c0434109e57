// Makes the terminal's styles agree with the content policy: every style element made in this document gets the
// nonce that the policy asks for, and a style attribute is set as a property, which the policy lets pass. The
// terminal has no other way to be told.

export function allowStyles(document) {
  const nonce = document.querySelector("meta[name=nonce]").content;
  const createElement = document.createElement.bind(document);
  document.createElement = (name, options) => {
    const element = createElement(name, options);
    if (name === "style") element.nonce = nonce;
    return element;
  };
  const { setAttribute } = Element.prototype;
  Element.prototype.setAttribute = function (name, value) {
    if (name === "style") this.style.cssText = value;
    else setAttribute.call(this, name, value);
  };
}
