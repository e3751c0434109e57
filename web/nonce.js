// Gives every style element made in this document the nonce that the content policy asks for. The terminal
// makes style elements of its own and has no other way to be told.

export function allowStyleElements(document) {
  const nonce = document.querySelector("meta[name=nonce]").content;
  const createElement = document.createElement.bind(document);
  document.createElement = (name, options) => {
    const element = createElement(name, options);
    if (name === "style") element.nonce = nonce;
    return element;
  };
}
