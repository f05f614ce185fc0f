// Light or dark: as the system has it, or as was chosen here. No module, so that it runs before
// the first paint.
"use strict";
(() => {
  const order = ["system", "light", "dark"];
  const read = () => {
    try {
      const kept = localStorage.getItem("theme");
      return order.includes(kept) ? kept : "system";
    } catch {
      return "system"; // storage may be forbidden
    }
  };
  let theme = read();
  const apply = () => {
    if (theme === "system") {
      delete document.documentElement.dataset.theme;
    } else {
      document.documentElement.dataset.theme = theme;
    }
    const button = document.getElementById("theme");
    if (button) {
      button.textContent = `Theme: ${theme}`;
    }
  };
  apply();
  document.addEventListener("DOMContentLoaded", () => {
    apply();
    document.getElementById("theme").addEventListener("click", () => {
      theme = order[(order.indexOf(theme) + 1) % order.length];
      try {
        localStorage.setItem("theme", theme);
      } catch {
        // it holds until the page is left
      }
      apply();
    });
  });
})();
