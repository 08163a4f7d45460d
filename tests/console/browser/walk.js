// Walks through the console in Chromium, as one of the tests of browser_test.cpp. Each throws when something is not as it
// should be.
//   node walk.js TASK ADDRESS [FOLDER-FOR-SCREENSHOTS | PATH]
"use strict";
const assert = require("assert");
const fs = require("fs");
const { chromium } = require("playwright-core");

const [task, address, extra] = process.argv.slice(2);
const profile = "/profiles/user1/from0";
const pages = {
  login: "/login", first: "/first?code=x", overview: "/", none: "/?search=nothing-has-this", profile,
  address: profile + "/to/forwardto0", "remove-address": profile + "/to/forwardto0/remove", "new-address": profile + "/add",
  settings: profile + "/settings", log: profile + "/log", held: "/held", "held-mail": "/held/user1/from0/1",
  drop: "/held/user1/from0/1/drop", mails: "/mails", mail: "/mails/M1", history: "/history", account: "/account", users: "/users",
  user: "/users/user1", "new-profile": "/users/user1/profiles", rules: "/rules", rule: "/rules/endofdata",
  missing: "/profiles/user9/from9",
};
const looks = {
  "wide-light-en": { viewport: { width: 1200, height: 800 }, locale: "en-US", colorScheme: "light" },
  "phone-dark-ja": { viewport: { width: 360, height: 740 }, locale: "ja-JP", colorScheme: "dark", isMobile: true, hasTouch: true },
};

let complaints = [];

// A page whose console is watched: a word about the policy, or any error, is a complaint.
async function open(browser, look) {
  const context = await browser.newContext(look);
  context.setDefaultTimeout(60000);
  const page = await context.newPage();
  page.on("console", (message) => {
    const isPolicy = /Content.Security.Policy/i.test(message.text());
    const isStatus = /status of 4/.test(message.text());  // a page that says 404 or 422
    if (isPolicy || (message.type() === "error" && !isStatus)) complaints.push(page.url() + ": " + message.text());
  });
  page.on("pageerror", (error) => complaints.push(page.url() + ": " + error));
  return page;
}

async function logIn(page, name) {
  await page.goto(address + "/login");
  await page.fill("[name=name]", name);
  await page.fill("[name=password]", name + "'s secret");
  await page.click("main button.main");
  assert.equal(new URL(page.url()).pathname, "/", await page.textContent("main"));
}

// Taps what leads to another page.
const tapTo = (page, selector) => Promise.all([page.waitForNavigation(), page.tap(selector)]);

async function look(page, name, width) {
  const wide = await page.evaluate(() => document.documentElement.scrollWidth);
  if (wide > width) complaints.push(`${name}: ${wide} wide`);
  await page.evaluate(fs.readFileSync(require.resolve("axe-core/axe.min.js"), "utf8"));
  const found = await page.evaluate(() =>
    axe.run(document, { runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"] }));
  assert(found.passes.length > 5, name);
  for (const { id, nodes } of found.violations) complaints.push(`${name}: ${id}: ${nodes[0].html}: ${nodes[0].failureSummary}`);
}

const tasks = {
  // Each page in both looks: nothing to complain about, and a picture of it.
  async pages(browser) {
    fs.mkdirSync(extra, { recursive: true });
    for (const [name, options] of Object.entries(looks)) {
      const page = await open(browser, options);
      for (const [title, path] of Object.entries(pages)) {
        if (title === "overview") await logIn(page, "taro");
        const answer = await page.goto(address + path);
        assert.equal(answer.status(), title === "missing" ? 404 : 200, path);
        await page.screenshot({ path: `${extra}/${title}-${name}.png`, fullPage: true });
        await look(page, `${title} ${name}`, options.viewport.width);
      }
      await page.goto(address + "/account");
      await page.click("form[action='/account/code'] button");
      await page.waitForSelector("[name=secret]", { state: "attached" });
      await page.screenshot({ path: `${extra}/authenticator-${name}.png`, fullPage: true });
      await look(page, `authenticator ${name}`, options.viewport.width);
      await page.goto(address + profile);
      await page.click(`form[action="${profile}/start/check"] button`);
      await page.waitForURL("**/jobs/**");
      await page.waitForSelector("pre");
      await page.screenshot({ path: `${extra}/job-${name}.png`, fullPage: true });
      await look(page, `job ${name}`, options.viewport.width);
      await page.goto(address + profile + "/to/forwardto0");
      await page.selectOption("[name=textonly]", "128");
      await page.click("button[formaction$='/preview'][value='0']");
      await page.waitForSelector(".phone");
      await page.screenshot({ path: `${extra}/preview-${name}.png`, fullPage: true });
      await look(page, `preview ${name}`, options.viewport.width);
      await page.click("main a.button[href*='draft=']");
      assert.equal(await page.inputValue("[name=textonly]"), "128");
      await look(page, `draft ${name}`, options.viewport.width);
      await page.context().close();
    }
  },

  // On a phone, without script, in Japanese: a user lets the address get mail always, and some times, and has it run.
  async schedule(browser) {
    const page = await open(browser, { ...looks["phone-dark-ja"], javaScriptEnabled: false });
    await logIn(page, "hanako");
    await tapTo(page, `main a[href="${profile}"]`);
    await tapTo(page, `a.button[href="${profile}/to/forwardto0"]`);
    await tapTo(page, "button[value=office]");
    assert.match(await page.textContent("p.message.good"), /保存/);
    await page.tap("input[value='6-20']");
    await page.tap("input[value='1-18']");
    await tapTo(page, "form[action$='/week'] button.main");
    assert.match(await page.textContent("main"), /月 9:30-18:00、火-金 9:00-18:00、土 10:00-10:30/);
    await tapTo(page, "button[value=always]");
    await page.goto(address + profile);
    await tapTo(page, `form[action="${profile}/start/run"] button`);
    assert.match(page.url(), /\/jobs\//);
    await page.waitForSelector(".state.good", { timeout: 60000 });
    const answer = await page.goto(address + "/profiles/user0/from0");
    assert.equal(answer.status(), 404);  // another's
    assert.equal((await page.goto(address + "/users")).status(), 403);
  },

  // A user, a mailbox of that user with its servers checked and its run planned, a held message dropped.
  async administrator(browser) {
    const [pop, smtp] = extra.split(" ");
    const page = await open(browser, looks["wide-light-en"]);
    const press = (selector) => Promise.all([page.waitForNavigation(), page.click(selector)]);
    await logIn(page, "taro");
    await page.goto(address + "/users");
    await page.fill("[name=loginname]", "三郎");
    await page.fill("[name=password]", "short");
    await press("form[action='/users'] button");
    assert.equal(await page.inputValue("[name=loginname]"), "三郎");
    await page.fill("[name=password]", "long enough");
    await press("form[action='/users'] button");
    await press("a[href='/users/user2']");
    await press("a.button[href='/users/user2/profiles']");
    const settings = { address: "saburo@example.org", popserver: "127.0.0.1", popport: pop, popuser: "saburo",
      poppassword: "secret", smtpserver: "127.0.0.1", smtpport: "1" };
    for (const [key, value] of Object.entries(settings)) await page.fill(`[name=${key}]`, value);
    await press("button[formaction$='/check']");
    await page.waitForSelector(".state.warn");
    assert.match(await page.textContent("pre"), /log in .*OK[^]*FAILED/);
    await press("main a.button[href*='draft=']");
    assert.equal(await page.inputValue("[name=popuser]"), "saburo");
    await page.fill("[name=smtpport]", smtp);  // the password is kept
    await press("button[formaction$='/check']");
    await page.waitForSelector(".state.good");
    await press("main a.button[href*='draft=']");
    await press("main form button.main");
    await page.goto(address + "/profiles/user2/from0/add");
    await page.fill("[name=address]", "phone@example.net");
    await page.check("[name=mail][value=all]");
    await press("main form button.main");
    for (const what of ["check", "plan"]) {
      await page.goto(address + "/profiles/user2/from0");
      await press(`form[action$='/start/${what}'] button`);
      await page.waitForSelector(".state.good");
      assert.match(await page.textContent("pre"), what === "check" ? /log in .*OK/ : /1 message in the mailbox/);
    }
    await page.goto(address + "/profiles/user2/from0");
    await press("form[action='/profiles/user2/from0/switch'] button");
    assert.match(await page.textContent("p.message.good"), /switched on/);
    await page.goto(address + "/held/user1/from0/1");
    await press("a.button[href$='/drop']");
    await press("button.danger");
    await page.waitForSelector("p.message.good");
    assert.equal(await page.locator("tbody tr").count(), 1);
  },

  // With the keyboard alone: the one-time link makes an administrator.
  async first(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    await page.goto(address + extra);
    await page.focus("[name=name]");
    await page.keyboard.type("jiro");
    await page.keyboard.press("Tab");
    await page.keyboard.type("short");
    await page.keyboard.press("Enter");
    await page.waitForSelector("p.message.bad");
    assert.equal(await page.inputValue("[name=name]"), "jiro");
    await page.fill("[name=password]", "long enough for it");
    await page.focus("[name=password]");
    await page.keyboard.press("Enter");
    await page.waitForSelector("p.message.good");
    await page.goto(address + "/users");
    assert.match(await page.textContent("main"), /jiro/);
  },

  // In a week the arrow keys move, the space bar marks, and a mouse marks what it is drawn over.
  async week(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    await logIn(page, "hanako");
    await page.goto(`${address}${profile}/to/forwardto0`);
    const box = (value) => page.locator(`input[value='${value}']`);
    await box("1-0").focus();
    await page.keyboard.press("ArrowDown");
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("Space");
    assert(await box("2-1").isChecked());
    await box("3-4").scrollIntoViewIfNeeded();
    await box("3-4").hover();
    await page.mouse.down();
    await box("4-4").hover();
    await box("4-5").hover();
    await page.mouse.up();
    for (const drawn of ["3-4", "4-4", "4-5"]) assert(await box(drawn).isChecked(), drawn);
    await page.locator("form[action$='/week'] button.main").first().click();
    await page.waitForSelector("p.message.good");
    assert.match(await page.textContent("main"), /Tue 0:30-1:00; Wed 2:00-2:30; Thu 2:00-3:00/);
  },
};

(async () => {
  const browser = await chromium.launch({
    executablePath: "/usr/bin/chromium", args: ["--no-sandbox", "--disable-dev-shm-usage"], timeout: 60000 });
  await tasks[task](browser);
  await browser.close();
  assert.deepEqual(complaints, []);
})().catch((error) => {
  console.error(error, complaints);
  process.exit(1);
});
