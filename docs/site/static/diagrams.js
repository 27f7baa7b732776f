// Draws the diagrams of a page in the colours of its theme, again whenever that changes.
// <html data-diagrams> says when that is done.
const diagrams = [...document.querySelectorAll("pre.mermaid")];
const texts = diagrams.map(diagram => diagram.textContent);
const prefersDark = matchMedia("(prefers-color-scheme: dark)");
let drawnTheme;

async function draw() {
   const chosen = document.body.dataset.theme;
   const dark = chosen === "dark" || (chosen !== "light" && prefersDark.matches);
   const theme = dark ? "dark" : "neutral";
   if (theme === drawnTheme) {
      return;
   }
   drawnTheme = theme;
   mermaid.initialize({ startOnLoad: false, theme });
   diagrams.forEach((diagram, index) => {
      delete diagram.dataset.processed;
      diagram.textContent = texts[index];
   });
   try {
      await mermaid.run({ nodes: diagrams });
   } finally {
      document.documentElement.dataset.diagrams = "done";
   }
}

prefersDark.addEventListener("change", draw);
new MutationObserver(draw).observe(document.body, { attributeFilter: ["data-theme"] });
addEventListener("load", draw);
