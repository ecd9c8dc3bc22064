// Halden's few behaviours: views, search, adding a receipt, the detail drawer and the export.
const documents = [
  ["receipt", "Washing machine", "Hvitevare Hansen · 3 Mar 2025", "€ 729.00"],
  ["receipt", "Laptop", "Datakjeden · 19 Aug 2025", "€ 1,249.00"],
  ["receipt", "Coffee grinder", "Kaffebrenneriet · 2 Jan 2026", "€ 189.00"],
  ["receipt", "Winter tyres", "Dekkpartner · 14 Oct 2025", "€ 612.00"],
  ["receipt", "Bicycle", "Sykkelhuset · 30 May 2024", "€ 1,090.00"],
  ["warranty", "Washing machine warranty", "3 years · ends 3 Mar 2027", ""],
  ["warranty", "Laptop warranty", "2 years · ends 19 Aug 2027", ""],
  ["warranty", "Coffee grinder warranty", "2 years · ends 2 Jan 2028", ""],
  ["manual", "Washing machine manual", "PDF · 48 pages", ""],
  ["manual", "Heat pump manual", "PDF · 112 pages", ""],
  ["manual", "Smoke alarm instructions", "PDF · 6 pages", ""],
  ["house", "Lease on the flat", "Signed 1 Aug 2024 · 3 years", ""],
  ["house", "Home insurance", "Renews 1 Sep 2026", "€ 28 / month"],
  ["house", "Electricity contract", "Fixed price until 2027", ""],
  ["house", "Deposit account", "Opened 1 Aug 2024", "€ 3,600.00"],
  ["receipt", "Sofa", "Bohus · 12 Sep 2024", "€ 1,480.00"],
  ["receipt", "Vacuum cleaner", "Elkjøp · 4 Feb 2026", "€ 299.00"],
];
const shelves = { receipt: "Receipts", warranty: "Warranties", manual: "Manuals", house: "Lease & house" };
const titles = { everything: "Everything", receipts: "Receipts", reminders: "Reminders", manuals: "Manuals",
                 house: "Lease & house", home: "Home folder" };
const only = { receipts: "receipt", manuals: "manual", house: "house" };
const $ = (id) => document.getElementById(id);
let fresh = null;

function show(view, heading) {
  document.body.dataset.view = view;
  $("title").textContent = heading || titles[view];
  document.querySelectorAll(".side a").forEach((a) => a.classList.toggle("on", a.dataset.view === view));
  $("detail").classList.remove("open");
  window.scrollTo(0, 0);
  draw();
}

function row(d) {
  const [kind, name, note, money] = d;
  const el = document.createElement("div");
  el.className = "row" + (d === fresh ? " new" : "");
  el.dataset.kind = kind;
  el.innerHTML = `<span class="kind"></span><div><b></b><small></small></div><small>${shelves[kind]}</small><span class="money"></span>`;
  el.querySelector("b").textContent = name;
  el.querySelector("div small").textContent = note;
  el.querySelector(".money").textContent = money;
  el.onclick = () => open(d);
  return el;
}

function draw() {
  const list = $("list"), view = document.body.dataset.view, words = $("search").value.trim().toLowerCase();
  list.replaceChildren();
  let shown = documents;
  if (view === "search") shown = documents.filter((d) => (d[1] + " " + d[2]).toLowerCase().includes(words));
  else if (only[view]) shown = documents.filter((d) => d[0] === only[view]);
  for (const kind of Object.keys(shelves)) {
    const here = shown.filter((d) => d[0] === kind);
    if (!here.length) continue;
    if (view === "everything") list.append(Object.assign(document.createElement("h3"), { className: "shelf", textContent: shelves[kind] }));
    here.forEach((d) => list.append(row(d)));
  }
  if (!shown.length) list.textContent = "Nothing matches.";
  $("count").textContent = `${documents.length} documents · ${(documents.length * 0.48).toFixed(1)} MB`;
  $("shelves").innerHTML = Object.entries(shelves)
    .map(([k, t]) => `<div><b>${documents.filter((d) => d[0] === k).length}</b>${t}</div>`).join("");
}

function open(d) {
  const [kind, name, note, money] = d;
  $("detail").innerHTML = `<h3></h3><dl><dt>Shelf</dt><dd>${shelves[kind]}</dd><dt>Details</dt><dd></dd>` +
    (money ? `<dt>Price</dt><dd>${money}</dd>` : "") +
    (d.warranty ? `<dt>Warranty</dt><dd>${d.warranty}</dd>` : "") + `</dl>`;
  $("detail").querySelector("h3").textContent = name;
  $("detail").querySelectorAll("dd")[1].textContent = note;
  $("detail").classList.add("open");
}

document.querySelectorAll(".side a").forEach((a) => (a.onclick = () => show(a.dataset.view)));
$("search").oninput = () => {
  const words = $("search").value.trim();
  if (words) show("search", `Results for “${words}”`);
  else show("everything");
  $("search").focus();
};

// Adding: the drop area takes the sample photo, the name is typed, return files it
// and the shop, date and price are read off the photo.
const sheet = $("addSheet");
$("add").onclick = () => {
  sheet.className = "sheet";
  sheet.hidden = false;
  ["shop", "date", "price"].forEach((id) => ($(id).textContent = ""));
  $("name").value = "";
};
$("drop").onclick = () => {
  sheet.classList.add("chosen");
  $("name").focus();
};
$("name").onkeydown = (e) => {
  if (e.key !== "Enter") return;
  const name = $("name").value.trim() || "Receipt";
  const read = [["shop", "Elektro Lindqvist"], ["date", "12 Nov 2026"], ["price", "€ 649.00"]];
  read.forEach(([id, text], i) => setTimeout(() => ($(id).textContent = text), 250 + i * 350));
  fresh = ["receipt", name, "Elektro Lindqvist · 12 Nov 2026", "€ 649.00"];
  fresh.warranty = "2 years · reminder on 12 Oct 2028";
  documents.unshift(fresh);
  setTimeout(closeAdd, 3800);
};
function closeAdd() {
  if (sheet.hidden) return;
  sheet.hidden = true;
  show("everything");
}
sheet.onclick = (e) => e.target === sheet && closeAdd();

// Export: the folder packs itself into one file.
const exporting = $("exportSheet");
$("export").onclick = () => {
  exporting.className = "sheet";
  exporting.hidden = false;
  $("exportNote").textContent = `Packing ${documents.length} documents…`;
  requestAnimationFrame(() => requestAnimationFrame(() => exporting.classList.add("done")));
  setTimeout(() => ($("exportNote").textContent = "Saved as Halden-home.halden in Downloads — one tidy file."), 1500);
};
exporting.onclick = () => (exporting.hidden = true);
document.addEventListener("keydown", (e) => {
  if (e.key !== "Escape") return;
  exporting.hidden = true;
  closeAdd();
  $("detail").classList.remove("open");
});

draw();
